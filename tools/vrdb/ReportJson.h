#pragma once

#include <string>

#include "StatusParser.h"
#include "Top.h"

namespace vrdb {

/** The report as one JSON object, on several lines. */
std::string ReportToJson(const Report& report);

/** One moment of `top` as one JSON object, on one line. */
std::string SampleToJson(const Sample& sample, const Rates& rates);

}  // namespace vrdb
