// Visibility of the engine's public symbols. The engine stands alone, so it has its own macro.
#pragma once

#define VORN_REGEX_EXPORT __attribute__((visibility("default")))
