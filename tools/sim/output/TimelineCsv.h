#pragma once

#include <ostream>
#include <vector>

#include "tools/sim/loop/Timeline.h"

namespace TalvexSim {

// timeline.csv, whole or a row at a time. A replay has no device model, so it leaves out the
// columns that come from one.
void WriteTimelineCsv(std::ostream& out, const std::vector<TimelineRow>& rows,
                      bool withModel = true);
void WriteTimelineHeader(std::ostream& out, bool withModel);
void WriteTimelineRow(std::ostream& out, const TimelineRow& row, bool withModel);

}  // namespace TalvexSim
