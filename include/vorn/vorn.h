// The whole base layer.
#pragma once

#include <vorn/Application.h>
#include <vorn/Exceptions.h>
#include <vorn/File.h>
#include <vorn/FormatStream.h>
#include <vorn/Language.h>
#include <vorn/ModuleInfo.h>
#include <vorn/StringRef.h>
#include <vorn/StringVar.h>
#include <vorn/Strings.h>
#include <vorn/Threading.h>
#include <vorn/Trace.h>
