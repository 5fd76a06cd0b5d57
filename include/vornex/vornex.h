// All platform services, and the errors that they raise.
#pragma once

#include <vorn/Exceptions.h>
#include <vornex/Base64.h>
#include <vornex/ConfigManager.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>
#include <vornex/OSInfo.h>
#include <vornex/PartitionTable.h>
#include <vornex/Smtp.h>
#include <vornex/StringTokenizer.h>
#include <vornex/SystemLog.h>
#include <vornex/SystemTime.h>
#include <vornex/Utilities.h>
#include <vornex/VersionCheck.h>
