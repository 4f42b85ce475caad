// Builds the text that a Prometheus server reads.
#pragma once

#include <prometheus/metric_family.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "relay/base/counting/duration_counts.h"

namespace vlk::relay {

// The metrics of one answer. Every name begins with "vantelink_relay_", which is left out here. Used on one
// thread.
class Exposition {
 public:
  using Type = prometheus::MetricType;
  using Labels = std::initializer_list<std::pair<const char*, std::string_view>>;

  // Begins a metric, whose values follow. The name ends with the unit, and with "_total" for a counter.
  Exposition& begin(const char* name, const char* help, Type type);
  Exposition& value(double value, Labels labels = {});
  Exposition& durations(const DurationCounts& counts);

  // A metric with one value.
  void gauge(const char* name, const char* help, double number) {
    begin(name, help, Type::Gauge).value(number);
  }
  void counter(const char* name, const char* help, double number) {
    begin(name, help, Type::Counter).value(number);
  }

  [[nodiscard]] std::string text() const;

 private:
  std::vector<prometheus::MetricFamily> families_;
};

}  // namespace vlk::relay
