#include "tools/CountersReport.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/upg/RapidJson.h"

namespace FalTools {
namespace {

using Fal::Mroute::MrouteCounterKeyMapEntry;
using Routing::Multicast::Fib::Counter;

std::vector<Counter> counterRows(PublishedCounters const& c) {
  auto rows = c.counterStatus().rows();
  std::sort(rows.begin(), rows.end(), [](Counter const& a, Counter const& b) { return a.routeKey() < b.routeKey(); });
  return rows;
}

std::vector<MrouteCounterKeyMapEntry> keyMapRows(PublishedCounters const& c) {
  auto rows = c.counterKeyMap().mrouteCounterKeyMapEntries();
  std::sort(rows.begin(), rows.end(), [](auto const& a, auto const& b) { return a.key < b.key; });
  return rows;
}

std::string line(char const* format, auto... args) {
  char buf[256];
  std::snprintf(buf, sizeof buf, format, args...);
  return buf;
}

std::string whyNot(Memtab::CollectionControl const& control) {
  return control.error().empty() ? std::string("not published") : std::string("not published: ") + control.error();
}

}  // namespace

void printHuman(std::ostream& os, PublishedCounters const& c) {
  os << "Counters published as " << c.base() << '\n';
  auto const& status = c.counterStatus();
  os << "  counter status (" << status.control()->path() << "): ";
  if (!status.mounted()) {
    os << whyNot(*status.control()) << '\n';
  } else {
    auto const ctl = status.ctlRecord();
    auto const rows = counterRows(c);
    os << rows.size() << " rows (control record: size " << ctl.currSize << ", active " << ctl.currActive << ", capacity "
       << ctl.capacity << ")\n";
    os << line("    %-44s %20s %14s  %s\n", "route", "value", "updated (s)", "active");
    for (Counter const& row : rows) {
      os << line("    %-44s %20" PRId64 " %14.6f  %s\n", row.routeKey().pretty().c_str(), row.value(), row.updateTime(),
                 row.active() ? "yes" : "no");
    }
  }
  auto const& keyMap = c.counterKeyMap();
  os << "  counter key map (" << keyMap.mrouteCounterKeyMapEntryControl()->path() << "): ";
  if (!keyMap.mounted()) {
    os << whyNot(*keyMap.mrouteCounterKeyMapEntryControl()) << '\n';
    return;
  }
  os << keyMap.mrouteCounterKeyMapEntrySize() << " routes of " << keyMap.mrouteCounterKeyMapEntryCapacity() << '\n';
  os << line("    %10s  %-44s %18s\n", "vrf", "route", "counter key");
  for (auto const& e : keyMapRows(c)) {
    os << line("    %10" PRIu32 "  %-44s %#18" PRIx64 "\n", e.key.vrfId, e.key.sg.pretty().c_str(), e.counterKey);
  }
}

void printJson(std::ostream& os, PublishedCounters const& c) {
  rapidjson::StringBuffer buf;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> w(buf);
  auto str = [&](std::string const& s) { w.String(s.c_str(), static_cast<rapidjson::SizeType>(s.size())); };
  auto table = [&](std::string const& name, Memtab::CollectionControl const& control, bool mounted) {
    w.Key("table");
    str(name);
    w.Key("path");
    str(control.path());
    w.Key("published");
    w.Bool(mounted);
    if (!mounted && !control.error().empty()) {
      w.Key("error");
      str(control.error());
    }
  };
  w.StartObject();
  w.Key("name");
  str(c.base());

  auto const& status = c.counterStatus();
  w.Key("counterStatus");
  w.StartObject();
  table(c.counterStatusName(), *status.control(), status.mounted());
  if (status.mounted()) {
    auto const ctl = status.ctlRecord();
    w.Key("capacity");
    w.Uint(ctl.capacity);
    w.Key("currSize");
    w.Uint(ctl.currSize);
    w.Key("currActive");
    w.Uint(ctl.currActive);
    w.Key("rows");
    w.StartArray();
    for (Counter const& row : counterRows(c)) {
      w.StartObject();
      w.Key("source");
      str(row.routeKey().source().stringValue());
      w.Key("group");
      str(row.routeKey().group().stringValue());
      w.Key("value");
      w.Int64(row.value());
      w.Key("updateTime");
      w.Double(row.updateTime());
      w.Key("active");
      w.Bool(row.active());
      w.EndObject();
    }
    w.EndArray();
  }
  w.EndObject();

  auto const& keyMap = c.counterKeyMap();
  w.Key("counterKeyMap");
  w.StartObject();
  table(c.counterKeyMapName(), *keyMap.mrouteCounterKeyMapEntryControl(), keyMap.mounted());
  if (keyMap.mounted()) {
    w.Key("capacity");
    w.Uint(keyMap.mrouteCounterKeyMapEntryCapacity());
    w.Key("size");
    w.Uint(keyMap.mrouteCounterKeyMapEntrySize());
    w.Key("rows");
    w.StartArray();
    for (auto const& e : keyMapRows(c)) {
      w.StartObject();
      w.Key("vrfId");
      w.Uint(e.key.vrfId);
      w.Key("source");
      str(e.key.sg.source().stringValue());
      w.Key("group");
      str(e.key.sg.group().stringValue());
      w.Key("counterKey");
      w.Uint64(e.counterKey);
      w.EndObject();
    }
    w.EndArray();
  }
  w.EndObject();
  w.EndObject();
  os << buf.GetString() << '\n';
}

}  // namespace FalTools
