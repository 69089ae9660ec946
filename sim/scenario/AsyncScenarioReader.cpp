#include "sim/scenario/AsyncScenarioReader.h"

#include <algorithm>

namespace FalSim {

namespace {
using Flavour = Scenario::Flavour;
using Op = AsyncReferenceChip::Operation;
}  // namespace

Flavour AsyncScenarioReader::flavour(Value const& v, std::string const& path) const {
  char const* const what = "one of \"sync\", \"async\"";
  std::string const text = r_.string(v, path, what);
  if (text == "sync") return Flavour::sync;
  if (text == "async") return Flavour::async;
  r_.fail(path, what, &v);
}

void AsyncScenarioReader::chips(Value const& v, std::string const& path, Scenario::Chips& chips) const {
  if (auto const* f = JsonReader::member(v, "flavour")) chips.flavour = flavour(*f, JsonReader::child(path, "flavour"));
  if (auto const* o = JsonReader::member(v, "otherFlavour")) {
    std::string const p = JsonReader::child(path, "otherFlavour");
    std::string const what = "a chip number from 0 to " + std::to_string(chips.count - 1) + ", not listed before";
    auto const a = r_.array(*o, p, "a list of chip numbers");
    for (std::size_t i = 0; i < a.Size(); ++i) {
      auto const chip = static_cast<std::uint32_t>(r_.integer(a[i], JsonReader::item(p, i), what, 0, chips.count - 1));
      if (std::find(chips.otherFlavour.begin(), chips.otherFlavour.end(), chip) != chips.otherFlavour.end()) {
        r_.fail(JsonReader::item(p, i), what, &a[i]);
      }
      chips.otherFlavour.push_back(chip);
    }
  }
  if (auto const* l = JsonReader::member(v, "transactionLatency")) {
    chips.transactionLatency =
        r_.number(*l, JsonReader::child(path, "transactionLatency"), "a latency in seconds from 0 to 10", 0, 10);
  }
  if (auto const* s = JsonReader::member(v, "seed")) {
    chips.seed = r_.integer(*s, JsonReader::child(path, "seed"), "a seed from 0 to 2^53", 0, std::uint64_t{1} << 53);
  }
  if (chips.kernel && chips.asyncCount() > 0) {
    r_.failWith(JsonReader::child(path, "flavour"), "the \"sync\" flavour on every chip of \"chip\": \"kernel\"",
                std::to_string(chips.asyncCount()) + " asynchronous chip(s)");
  }
}

bool AsyncScenarioReader::transactionFault(Value const& v, std::string const& path, Scenario::Chips const& chips,
                                           Scenario::Fault& f) const {
  Value const* t = JsonReader::member(v, "transaction");
  if (!t) {
    if (auto const* p = JsonReader::member(v, "probability")) {
      r_.fail(JsonReader::child(path, "probability"), "no probability on a table fault (only beside \"transaction\")", p);
    }
    return false;
  }
  std::string const tp = JsonReader::child(path, "transaction");
  char const* const kinds = "one of \"group\", \"update\", \"ingress\"";
  std::string const kind = r_.string(*t, tp, kinds);
  for (Op op : {Op::group, Op::update, Op::ingress}) {
    if (kind == operationName(op)) f.transaction = op;
  }
  if (!f.transaction) r_.fail(tp, kinds, t);
  for (char const* other : {"table", "forceFull"}) {
    if (auto const* x = JsonReader::member(v, other)) {
      r_.fail(JsonReader::child(path, other), "no such field beside \"transaction\"", x);
    }
  }
  if (f.chip ? chips.flavourOf(*f.chip) != Flavour::async : chips.asyncCount() == 0) {
    r_.failWith(tp, "a fault on an asynchronous chip (\"flavour\": \"async\")",
                f.chip ? "chip " + std::to_string(*f.chip) + ", which runs the sync flavour" : "no asynchronous chip");
  }
  if (auto const* n = JsonReader::member(v, "failNext")) {
    f.failNext = static_cast<std::uint32_t>(r_.integer(*n, JsonReader::child(path, "failNext"),
                                                       "a number of transactions to fail, 0 to 1000000", 0, 1'000'000));
  }
  if (auto const* p = JsonReader::member(v, "probability")) {
    f.probability = r_.number(*p, JsonReader::child(path, "probability"), "a probability from 0 to 1", 0, 1);
  }
  if (!f.failNext && !f.probability) r_.failWith(path, "\"failNext\" or \"probability\"", "neither");
  return true;
}

}  // namespace FalSim
