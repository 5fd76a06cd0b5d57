// Visibility of the libraries' public symbols.
//
// Everything is built with hidden visibility; what a host application may use carries this macro.
#pragma once

#define VORN_EXPORT __attribute__((visibility("default")))
