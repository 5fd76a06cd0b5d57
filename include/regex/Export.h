// Visibility of the engine's public symbols. The engine stands alone, so it has its own macro.
#pragma once

#define VORN_REGEX_EXPORT __attribute__((visibility("default")))

// The elements call each other as deeply as patterns nest. What is on that way has small frames:
// rare paths stand in functions of their own, and the parts of one step in one function.
#define VORN_REGEX_APART __attribute__((noinline))
#define VORN_REGEX_MERGED __attribute__((always_inline)) inline
