#pragma once
// What mroute-counters prints about the published counter tables: a table
// for people, or one JSON document.
#include <ostream>

#include "tools/PublishedCounters.h"

namespace FalTools {

// The counter status (the rows it holds, its control record's size, active
// count and capacity, and each row: route, value, update time, active) and the counter key map (each route with its
// VRF and counter key), rows in route order; a table that is not published
// says why.
void printHuman(std::ostream& os, PublishedCounters const& counters);

// {"name": B, "counterStatus": {"table", "path", "published", ["error"],
//  "capacity", "currSize", "currActive", "rows": [{"source", "group",
//  "value", "updateTime", "active"}]}, "counterKeyMap": {"table", "path",
//  "published", ["error"], "capacity", "size", "rows": [{"vrfId", "source",
//  "group", "counterKey"}]}}
void printJson(std::ostream& os, PublishedCounters const& counters);

}  // namespace FalTools
