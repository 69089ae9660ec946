#pragma once
// Fal::MrouteHitConfig: hit-bit cache requests, keyed by request id, written
// by the per-chip state machines for the process that owns the hit-bit cache.
#include <cstdint>

#include "model/MrouteHitRequest.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"

namespace Fal {

class FALMROUTE_EXPORT MrouteHitConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<MrouteHitConfig> {
   public:
    virtual void onRequest(std::uint32_t id) {}
  };

  // The request under id, or the default request {0, read} when absent.
  MrouteHitRequest request(std::uint32_t id) const;
  Vex::OrderedColl<std::uint32_t, MrouteHitRequest> const& requests() const { return request_; }
  std::size_t requestSize() const { return request_.size(); }
  // Stores the request under its own id.
  void requestIs(MrouteHitRequest const& r);
  void requestDel(std::uint32_t id);
  void requestDelAll();

 private:
  Vex::OrderedColl<std::uint32_t, MrouteHitRequest> request_;
};

}  // namespace Fal
