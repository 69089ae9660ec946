#include "platform/upg/UpgPStoreHelper.h"

namespace Upg {

bool UpgPStoreHelper::restore(std::string const& jsonText) {
  rapidjson::Document document;
  document.Parse(jsonText.data(), jsonText.size());
  if (document.HasParseError()) {
    throw RestoreError(std::string("upgrade document is not valid JSON: ") + rapidjson::GetParseError_En(document.GetParseError()) +
                       " (at offset " + std::to_string(document.GetErrorOffset()) + ")");
  }
  if (!document.IsObject()) throw RestoreError("upgrade document is not a JSON object of store sections");
  auto section = document.FindMember(storeName_);
  if (section == document.MemberEnd()) return false;
  doRestore(section->value);
  return true;
}

}  // namespace Upg
