#pragma once

#include <string>

#include "tools/sim/report/Report.h"

namespace TalvexSim {

// The session report's three texts. report.json is byte-identical for identical reports:
// numbers are rounded to stated decimals.
std::string ReportJson(const Report& report);
std::string ReportMarkdown(const Report& report);
// The report's lines in the summary on standard output.
std::string ReportSummaryLines(const Report& report);

}  // namespace TalvexSim
