// Sets the parts of a run up and lets them work.
#include "scenario.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "figures.h"
#include "machine.h"
#include "netem.h"
#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/net/line/slow_line.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/storage/store.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"
#include "viewer.h"

namespace vantelink_bench {
namespace {

using namespace vlk::relay;
using std::chrono::seconds;

constexpr char kPassword[] = "correct horse battery";
constexpr seconds kBeforeOutage{60}, kAfterOutage{60};
constexpr seconds kPatience{60};
// Bytes of the file that is downloaded again and again; the relay's disk has room for it.
constexpr std::uintmax_t kDownload = 64u << 20;

// The relay's data folder, and a large file without content.
struct Files {
  Files() : data(folder.path() / "data"), large(folder.path() / "large") {
    start_sodium();
    std::filesystem::create_directories(data);
    OwnCertificate own(data, {"localhost"});
    static_cast<void>(own.prepare());
    certificate = own.trusted().certificate;
    Store store(data / "relay.db");
    store.add_user("admin", hash_password(kPassword));
    store.open_enrolment(kPatience.count());
    folder.write("large", "");
    std::filesystem::resize_file(large, kDownload);
  }

  vantelink_test::TempFolder folder;
  std::filesystem::path data;
  std::filesystem::path large;
  std::string certificate;
};

std::string log_in(unsigned short port) {
  const Json person = {{"name", "admin"}, {"password", kPassword}};
  return Browser(port).request("POST", "/api/login", person.dump()).cookie;
}

// Linux lets a connection hold about twice the bytes that are on their way.
void imitate_send_buffers(const LineRules& rules) {
  const double round_trip = std::chrono::duration<double>(2 * rules.delay).count();
  const double on_their_way = rules.bits_per_second / 8 * round_trip + static_cast<double>(rules.queue);
  try {
    enter_network();
    limit_send_buffers(static_cast<std::size_t>(2 * on_their_way));
  } catch (const std::runtime_error& failure) {
    std::fprintf(stderr, "%s; the machine's system may queue more than over a real line\n", failure.what());
  }
}

}  // namespace

std::string run(const Scenario& scenario, Side side, const Conditions& conditions) {
  const Means means = conditions.means;
  if (means == Means::Netem) enter_network();
  if (means == Means::Proxy && side == Side::Machine) imitate_send_buffers(scenario.rules);
  const Files files;
  std::vector<std::string> arguments;
  if (means == Means::Netem) arguments = {"--address", "0.0.0.0"};  // the namespace has only the loopback
  const vantelink_test::RelayProcess relay(files.data, arguments);
  const auto port = static_cast<unsigned short>(relay.port());
  LineRules rules = scenario.rules;
  seconds time = conditions.time;
  const auto gone_at = Clock::now() + kBeforeOutage;
  if (scenario.gone > seconds(0)) {
    rules.outage = {gone_at, gone_at + scenario.gone};
    time = std::max(time, kBeforeOutage + scenario.gone + kAfterOutage);
  }
  constexpr char kMachineAddress[] = "127.0.0.1";
  const std::string viewer_address = means == Means::Netem ? kViewerAddress : kMachineAddress;
  std::optional<SlowLine> line;
  std::optional<Netem> netem;
  if (means == Means::Proxy) line.emplace(port, rules);
  if (means == Means::Netem)
    netem.emplace(port, side == Side::Machine ? kMachineAddress : viewer_address, rules);
  const auto port_of = [&](Side which) { return line && side == which ? line->port() : port; };
  Figures figures;
  const std::string cookie = log_in(port);
  const Machine machine(port_of(Side::Machine), files.certificate, figures);
  const Viewer viewer({.address = viewer_address,
                       .port = port_of(Side::Viewer),
                       .cookie = cookie,
                       .download_path = conditions.download ? files.folder.windows_path("large") : "",
                       .upload_path = conditions.upload ? files.folder.windows_path("uploaded") : "",
                       .quality = conditions.quality},
                      figures);
  if (!figures.start(kPatience)) throw std::runtime_error("no picture was shown: " + relay.log());
  std::this_thread::sleep_for(time);
  return figures.row();
}

}  // namespace vantelink_bench
