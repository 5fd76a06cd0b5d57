// Everything of the regular-expression engine.
#pragma once

#include <regex/Explain.h>
#include <regex/Regexp.h>
