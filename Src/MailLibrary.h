// libetpan, and Cyrus SASL underneath it, loaded when mail is first sent: with GnuTLS and what else
// they need they would cost every program more at its start than all else that the library is. A
// program that has libetpan itself, and gives StartSmtpTls its sessions, has them handled by that.
#pragma once

#include <libetpan/libetpan.h>
#include <sasl/sasl.h>

#include "LateLibrary.h"

// All that is used of both, functions and variables.
#define VORNEX_MAIL_SYMBOLS(SYMBOL)                                                                \
    SYMBOL(mailesmtp_ehlo)                                                                         \
    SYMBOL(mailesmtp_mail)                                                                         \
    SYMBOL(mailesmtp_rcpt)                                                                         \
    SYMBOL(mailesmtp_starttls)                                                                     \
    SYMBOL(mailsmtp_auth)                                                                          \
    SYMBOL(mailsmtp_data)                                                                          \
    SYMBOL(mailsmtp_data_message)                                                                  \
    SYMBOL(mailsmtp_free)                                                                          \
    SYMBOL(mailsmtp_helo)                                                                          \
    SYMBOL(mailsmtp_mail)                                                                          \
    SYMBOL(mailsmtp_new)                                                                           \
    SYMBOL(mailsmtp_rcpt)                                                                          \
    SYMBOL(mailsmtp_set_logger)                                                                    \
    SYMBOL(mailsmtp_socket_connect)                                                                \
    SYMBOL(mailsmtp_ssl_connect)                                                                   \
    SYMBOL(mailstream_get_low)                                                                     \
    SYMBOL(mailstream_low_cancel)                                                                  \
    SYMBOL(mailstream_low_close)                                                                   \
    SYMBOL(mailstream_low_free)                                                                    \
    SYMBOL(mailstream_low_get_cancel)                                                              \
    SYMBOL(mailstream_low_get_certificate_chain)                                                   \
    SYMBOL(mailstream_low_get_fd)                                                                  \
    SYMBOL(mailstream_low_new)                                                                     \
    SYMBOL(mailstream_low_set_logger)                                                              \
    SYMBOL(mailstream_low_ssl_open)                                                                \
    SYMBOL(mailstream_low_tls_open)                                                                \
    SYMBOL(mailstream_network_delay)                                                               \
    SYMBOL(mailstream_set_low)                                                                     \
    SYMBOL(mailstream_socket_driver)                                                               \
    SYMBOL(sasl_client_init)                                                                       \
    SYMBOL(sasl_set_mutex)                                                                         \
    SYMBOL(sasl_set_path)

namespace VornEx::Internals {

struct CMailLibrary
{
    VORNEX_MAIL_SYMBOLS(VORNEX_LATE_MEMBER)
};

// False, with the reason in the trace, where the libraries cannot be loaded. Any thread.
bool LoadMailLibrary();

// The table, for whoever has got true from LoadMailLibrary.
const CMailLibrary& Mail();

} // namespace VornEx::Internals
