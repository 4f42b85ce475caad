// Counts the connections of each standing and of each source.
#include "relay/net/connections.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace vlk::relay {
namespace {

// One source may have this part of all places of a standing.
constexpr std::size_t kSourceShare = 4;

}  // namespace

Connections::Place::~Place() {
  never_expires();
  all_.leave(*this);
  --all_.alive_;
  ++all_.ended_;
}

void Connections::Place::expires_after(std::chrono::milliseconds Limits::*limit) {
  limit_ = limit;
  since_ = Clock::now();
  all_.timed_.insert(this);
  if (!counted_) return;
  // The order in the pool is the order of these times.
  auto& places = all_.pool(standing_).places;
  places.splice(places.end(), places, at_);
}

void Connections::Place::never_expires() {
  limit_ = nullptr;
  all_.timed_.erase(this);
}

bool Connections::Place::rise(Standing standing) {
  if (standing == standing_) return counted_;
  if (!counted_) return false;
  all_.leave(*this);
  if (!all_.make_room(standing, source_)) return false;
  standing_ = standing;
  all_.enter(*this);
  return true;
}

bool Connections::Place::move(std::string source, std::string peer) {
  peer_ = std::move(peer);
  if (source == source_) return counted_;
  if (!counted_) return false;
  all_.leave(*this);
  source_ = std::move(source);
  if (!all_.make_room(standing_, source_)) return false;
  all_.enter(*this);
  return true;
}

std::size_t Connections::limit(Standing standing) const {
  switch (standing) {
    case Standing::Stranger:
      return std::max<std::size_t>(limits_.connections / 8, 1);
    case Standing::Waiting:
      return std::max<std::size_t>(limits_.connections / 16, 1);
    case Standing::Known:
      break;
  }
  return std::max<std::size_t>(limits_.connections - limits_.connections / 8 - limits_.connections / 16, 1);
}

std::size_t Connections::limit_of_source(Standing standing) const {
  const std::size_t all = limit(standing);
  return standing == Standing::Known ? all : std::max<std::size_t>(all / kSourceShare, 1);
}

std::unique_ptr<Connections::Place> Connections::admit(std::string source, std::string peer) {
  thread_.check();
  if (!make_room(Standing::Stranger, source)) return nullptr;
  std::unique_ptr<Place> place(new Place(*this, std::move(source), std::move(peer)));
  ++alive_;
  enter(*place);
  return place;
}

void Connections::enter(Place& place) {
  Pool& its = pool(place.standing_);
  place.at_ = its.places.insert(its.places.end(), &place);
  ++its.by_source[place.source_];
  place.counted_ = true;
}

void Connections::leave(Place& place) {
  if (!place.counted_) return;
  place.counted_ = false;
  Pool& its = pool(place.standing_);
  its.places.erase(place.at_);
  const auto found = its.by_source.find(place.source_);
  if (--found->second == 0) its.by_source.erase(found);
}

void Connections::cut(Place& place, const std::string& reason) {
  leave(place);
  if (auto act = std::exchange(place.cut_, nullptr)) act(reason);
}

bool Connections::make_room(Standing standing, const std::string& source) {
  Pool& its = pool(standing);
  const auto own = its.by_source.find(source);
  if (own != its.by_source.end() && own->second >= limit_of_source(standing)) {
    if (standing == Standing::Known) return false;
    cut_oldest(its, source);
  }
  if (its.places.size() >= limit(standing)) {
    if (standing == Standing::Known) return false;
    const auto most =
        std::ranges::max_element(its.by_source, {}, [](const auto& entry) { return entry.second; });
    cut_oldest(its, std::string(most->first));
  }
  // Connections that were cut keep their descriptors until their coroutines have ended.
  return alive_ < limits_.connections + limits_.connections / 8;
}

void Connections::cut_oldest(Pool& its, const std::string& source) {
  const auto oldest =
      std::ranges::find(its.places, source, [](const Place* place) { return place->source_; });
  if (oldest == its.places.end()) return;
  Place& place = **oldest;
  log_.write(place.peer_, "", "connection closed to make room for a newer one");
  cut(place, "too many connections");
}

void Connections::tick(Clock::time_point now) {
  thread_.check();
  std::vector<Place*> late;
  for (Place* place : timed_) {
    if (place->counted_ && now - place->since_ >= limits_.*place->limit_) late.push_back(place);
  }
  for (Place* place : late)
    cut(*place, "too slow");
}

}  // namespace vlk::relay
