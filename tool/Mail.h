// Mail from the command line: what the subcommands that send some have in common.
#pragma once

#include <string>

#include <vornex/Smtp.h>

#include "Program.h"

namespace Tool {

struct CMailOptions
{
    std::string m_Server; // HOST[:PORT]
    std::string m_User;
    std::string m_PasswordFile; // "-": standard input
    std::string m_From;
    std::string m_FromName;
    std::string m_To; // addresses between commas or semicolons; so the next two
    std::string m_Cc;
    std::string m_Bcc;
    std::string m_ReplyTo;
    std::string m_Subject;
    VornEx::CSmtpXPriority m_Priority = VornEx::CSMTP_XPRIORITY_NORMAL;
};

// Adds --server, --user, --password-file, --from and --from-name.
void AddServerOptions(CLI::App* app, CMailOptions& options);

// Sends the body and says where it went, or which step failed and why; gives the exit status.
// Throws CUsageError for values that must not go out.
int Deliver(const CMailOptions& options, const std::string& body);

} // namespace Tool
