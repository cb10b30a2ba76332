#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/sim/report/Report.h"

namespace TalvexSim {

// The report's scalar metrics under their report.json keys, in one order, each with the
// decimals tables show it with: report.json, compare.csv, compare.md, a sweep's rows and the
// objective's names all come from here.
struct ReportMetric {
    const char* key;
    std::optional<double> value;  // null in JSON, an empty cell in CSV
    int decimals;                 // for tables; report.json keeps three
};
using ReportMetrics = std::vector<ReportMetric>;
ReportMetrics CollectMetrics(const Report& report);

// The keys, in order.
std::vector<std::string> ReportMetricNames();
// Decimals of a metric in tables; three for a name that is none.
int MetricDecimals(const std::string& key);

// A run's metrics by key, as a sweep reads them back from report.json; empty where null.
using MetricValues = std::map<std::string, std::optional<double>>;
MetricValues MetricValuesOf(const Report& report);
// Nothing for a metric the run has no value of, or that is not there.
std::optional<double> MetricValue(const MetricValues& values, const std::string& key);
// The value with its metric's decimals; empty when there is none.
std::string MetricCell(const MetricValues& values, const std::string& key);

}  // namespace TalvexSim
