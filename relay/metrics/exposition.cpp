// Fills the records of the Prometheus library, which writes them as text.
#include "relay/metrics/exposition.h"

#include <prometheus/text_serializer.h>

namespace vlk::relay {
namespace {

double in_seconds(std::chrono::nanoseconds duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

Exposition& Exposition::begin(const char* name, const char* help, Type type) {
  families_.push_back({std::string("vantelink_relay_") + name, help, type, {}});
  return *this;
}

Exposition& Exposition::value(double value, Labels labels) {
  prometheus::ClientMetric& metric = families_.back().metric.emplace_back();
  for (const auto& [name, text] : labels)
    metric.label.push_back({name, std::string(text)});
  if (families_.back().type == Type::Counter)
    metric.counter.value = value;
  else
    metric.gauge.value = value;
  return *this;
}

Exposition& Exposition::durations(const DurationCounts& counts) {
  prometheus::ClientMetric& metric = families_.back().metric.emplace_back();
  std::uint64_t all = 0;
  for (std::size_t i = 0; i < DurationCounts::kBounds.size(); ++i) {
    all += counts.classes().at(i);
    metric.histogram.bucket.push_back({all, in_seconds(DurationCounts::kBounds.at(i))});
  }
  metric.histogram.sample_count = all + counts.classes().back();
  metric.histogram.sample_sum = in_seconds(counts.sum());
  return *this;
}

std::string Exposition::text() const {
  return prometheus::TextSerializer().Serialize(families_);
}

}  // namespace vlk::relay
