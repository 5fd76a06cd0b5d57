// Strings: views, owning strings and the streams that format into them.
#pragma once

#include <vorn/FormatStream.h>
#include <vorn/StringRef.h>
#include <vorn/StringVar.h>
