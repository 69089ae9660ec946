#pragma once
// Fal::MrouteHitStatus: responses of the hit-bit cache owner, which echoes
// each request it carried out under the request's id.
#include <cstdint>

#include "model/MrouteHitRequest.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"

namespace Fal {

class FALMROUTE_EXPORT MrouteHitStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<MrouteHitStatus> {
   public:
    virtual void onResponse(std::uint32_t id) {}
  };

  // The response under id, or the default request {0, read} when absent.
  MrouteHitRequest response(std::uint32_t id) const;
  Vex::OrderedColl<std::uint32_t, MrouteHitRequest> const& responses() const { return response_; }
  std::size_t responseSize() const { return response_.size(); }
  void responseIs(MrouteHitRequest const& r);
  void responseDel(std::uint32_t id);

 private:
  Vex::OrderedColl<std::uint32_t, MrouteHitRequest> response_;
};

}  // namespace Fal
