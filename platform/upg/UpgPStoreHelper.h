#pragma once
// The base of every persistent-store helper of a hitless upgrade.
//
// Before an upgrade the agent's state is saved in one JSON document with one
// member per store: { "<storeName>": <section>, ... }. After the restart the
// upgrade framework hands the document to each helper's restore(), which
// finds the helper's own section by its store name and passes it to
// doRestore(). A helper restores only its own section and never sees the
// others.
#include <stdexcept>
#include <string>

#include "platform/upg/RapidJson.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Upg {

// The saved document is not JSON or not an object: there is nothing to hand
// to any helper. The text says what is wrong and where.
class FALMROUTE_EXPORT RestoreError : public std::runtime_error {
 public:
  explicit RestoreError(std::string const& what) : std::runtime_error(what) {}
};

class FALMROUTE_EXPORT UpgPStoreHelper : public Vex::Entity {
 public:
  UpgPStoreHelper() = default;
  explicit UpgPStoreHelper(Vex::String storeName) : storeName_(std::move(storeName)) {}

  Vex::String const& storeName() const { return storeName_; }
  void storeNameIs(Vex::String name) { storeName_ = std::move(name); }

  // The class name of the helper, for diagnostics.
  virtual Vex::String fwkType() const { return "Upg::UpgPStoreHelper"; }

  // Rebuilds the helper's state from its section of the saved document.
  // The base restores nothing.
  virtual void doRestore(rapidjson::Value const& document) {}

  // Parses a whole saved document and restores this helper's section, if the
  // document has one. Returns whether it had one. Throws RestoreError when
  // the text is not a JSON object; what the section holds is doRestore's to
  // judge.
  bool restore(std::string const& jsonText);

 protected:
  ~UpgPStoreHelper() override = default;

 private:
  Vex::String storeName_;
};

}  // namespace Upg
