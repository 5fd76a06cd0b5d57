// The report as metrics.
#pragma once

#include <string>

#include "Text.h"

namespace Tool {

// The report, as `report --json` prints it, in Prometheus's text format (exposition format 0.0.4),
// for the textfile collector of its node_exporter. Figures are gauges in base units; facts are
// labels of gauges that are always 1. `problems` is how many things could not be found out.
std::string AsMetrics(const Json& report, std::size_t problems);

} // namespace Tool
