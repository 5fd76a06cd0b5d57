// All platform services.
#pragma once

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
