#include "sync/MrouteHitConfig.h"
#include "sync/MrouteHitStatus.h"

namespace Fal {

MrouteHitRequest MrouteHitConfig::request(std::uint32_t id) const {
  auto const* r = request_.find(id);
  return r ? *r : MrouteHitRequest();
}

void MrouteHitConfig::requestIs(MrouteHitRequest const& r) {
  if (request_.set(r.requestId, r)) notify(&Notifiee::onRequest, r.requestId);
}

void MrouteHitConfig::requestDel(std::uint32_t id) {
  if (request_.erase(id)) notify(&Notifiee::onRequest, id);
}

void MrouteHitConfig::requestDelAll() {
  for (auto it = request_.iterator(); it; ++it) requestDel(it.key());
}

MrouteHitRequest MrouteHitStatus::response(std::uint32_t id) const {
  auto const* r = response_.find(id);
  return r ? *r : MrouteHitRequest();
}

void MrouteHitStatus::responseIs(MrouteHitRequest const& r) {
  if (response_.set(r.requestId, r)) notify(&Notifiee::onResponse, r.requestId);
}

void MrouteHitStatus::responseDel(std::uint32_t id) {
  if (response_.erase(id)) notify(&Notifiee::onResponse, id);
}

}  // namespace Fal
