// Change to pixel: the time from a change on the screen until a viewer has a picture that shows it, with the
// shipped executable on a desk and with two other programs that send the desk's X screen. The viewer of each
// is in this process and connected over loopback, or is a page in Chromium: the console, or noVNC. Both times
// are read on this machine, so there is no clock to compare. In the scene keys, the viewer presses a key to
// which a Windows program answers with the change; the time begins at the press.
//
// --seconds=N sets the time of each scene with each side, --filter=REGEX chooses from the names SCENE/SIDE.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <numeric>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "e2e/support/agent_fixture.h"
#include "figures.h"
#include "keys.h"
#include "options.h"
#include "process.h"
#include "screen/painter.h"
#include "support/waiting.h"
#include "viewers/agent_viewer.h"
#include "viewers/browser_viewer.h"
#include "viewers/peer_viewer.h"

namespace {

using namespace vantelink_bench;
using vantelink_test::Desk;

// A side of the comparison: a program and its viewer.
struct Side {
  std::string name{};
  bool peer = false;
  std::function<std::unique_ptr<Viewer>()> start{};
  bool rises = false;  // the rate of its pictures rises at the beginning
};

constexpr char kKeys[] = "keys";  // the scene in which the viewer presses keys

std::vector<std::string> scene_names() {
  std::vector<std::string> names;
  names.reserve(kScenes.size() + 1);
  for (const Scene scene : kScenes)
    names.emplace_back(name_of(scene));
  names.emplace_back(kKeys);
  return names;
}

struct Options {
  std::chrono::seconds time{3};
  std::regex filter{"."};
};

// The processes of the desk that every side uses.
struct DeskProcesses {
  std::string display{};
  pid_t xvfb = 0, wineserver = 0;
};

DeskProcesses processes_of(const Desk& desk) {
  const std::string wineserver =
      "for p in $(pgrep '^wineserver'); do grep -qsz \"^WINEPREFIX=$WINEPREFIX\\$\" /proc/$p/environ && echo "
      "$p; done";
  return {desk.host("echo $DISPLAY"), std::stoi(desk.host("cat '" + desk.folder() + "/xvfb.pid'")),
          std::stoi(desk.host(wineserver + "; true"))};
}

std::vector<Side> sides_of(const Desk& desk, const std::string& display) {
  const std::vector<Peer> peers = {
      {"x11vnc", {"x11vnc", "-rfbport", "{port}", "-localhost", "-nopw", "-forever", "-quiet"}},
      {"TigerVNC", {"X0tigervnc", "-rfbport", "{port}", "-localhost", "-SecurityTypes", "None"}},
  };
  const std::vector<CapturePath> paths = {
      {.name = "GDI"},
      {.name = "mirror",
       .environment = {"WINEDLLOVERRIDES=mscoree,mshtml,winedbg.exe=;dxgi,d3d11=n,b",
                       "VANTELINK_DESKTOP_MIRROR={windows-folder}\\mirror"},
       .files = {"build/windows/tests/doubles/dxgi.dll", "build/windows/tests/doubles/d3d11.dll"},
       .helper = {"build/host/tests/doubles/desktop_mirror", "{folder}/mirror"}},
  };
  const std::vector<StreamWish> wishes = {{"h264", 30}, {"h264", 60}, {"mjpeg", 30}};
  std::vector<Side> sides;
  sides.reserve(2 * peers.size() + paths.size() * (wishes.size() + 1));
  for (const Peer& peer : peers)
    sides.push_back({peer.name, true, [=] { return std::make_unique<PeerViewer>(display, peer); }});
  for (const Peer& peer : peers) {
    sides.push_back(
        {peer.name + " noVNC", true, [=] { return std::make_unique<PeerPageViewer>(display, peer); }});
  }
  for (const CapturePath& path : paths) {
    for (const StreamWish& wish : wishes) {
      sides.push_back({path.name + ' ' + wish.codec + ' ' + std::to_string(wish.pictures_a_second), false,
                       [=, &desk] { return std::make_unique<AgentViewer>(desk, path, wish); }});
    }
    sides.push_back({path.name + " console", false,
                     [=, &desk] { return std::make_unique<ConsoleViewer>(desk, path); }, true});
  }
  return sides;
}

double processor(const std::vector<pid_t>& processes) {
  return std::accumulate(processes.begin(), processes.end(), 0.0,
                         [](double sum, pid_t process) { return sum + vantelink_bench::processor(process); });
}

// A scene, and how it is played.
struct Play {
  std::string scene{};
  std::function<Moment()> prepare{};  // returns the first number
  std::function<std::vector<Moment>(Clock::duration time)> play{};
};

std::vector<Play> plays_of(const Desk& desk, Painter& painter, Viewer& viewer) {
  std::vector<Play> plays;
  plays.reserve(kScenes.size() + 1);
  for (const Scene scene : kScenes) {
    plays.push_back({name_of(scene), [&painter, scene] { return painter.prepare(scene); },
                     [&painter, scene](Clock::duration time) { return painter.play(scene, time); }});
  }
  const auto keys = std::make_shared<std::optional<Keys>>();
  plays.push_back({kKeys,
                   [&painter, &desk, keys] {
                     keys->emplace(desk, painter.hide() + 1);
                     return keys->value().first();
                   },
                   [&viewer, keys](Clock::duration time) { return keys->value().press(viewer, time); }});
  return plays;
}

// Prepares the scene until the viewer shows its first number and has caught up with all before. A window that
// a Windows program opens or closes meanwhile may hide what the first tries paint.
void prepare(const Viewer& viewer, Painter& painter, const Play& play) {
  constexpr std::chrono::milliseconds kRest{500}, kTry{8000};
  constexpr int kTries = 5;
  for (int tries = 0; tries < kTries; ++tries) {
    const Moment first = play.prepare();
    const auto shown = [&] {
      return viewer.received().pictures > 0 && std::ranges::any_of(viewer.seen(), [&](const Moment& picture) {
               return picture.number == first.number;
             });
    };
    const bool seen = vantelink_test::eventually([&] { return shown() || painter.was_covered(); }, kTry);
    std::this_thread::sleep_for(kRest);
    if (seen && !painter.was_covered()) return;
  }
  throw std::runtime_error("the viewer does not show the first picture of the scene " + play.scene);
}

// A session in the console begins with few pictures a second. The relay raises them in steps, each at least
// 10 s after the one before, while the pictures use the bits that they have.
void let_rise(const Viewer& viewer, Painter& painter) {
  constexpr std::chrono::seconds kRise{35};
  prepare(viewer, painter, {"film", [&painter] { return painter.prepare(Scene::Film); }});
  (void)painter.play(Scene::Film, kRise);
}

Figures measure(const Viewer& viewer, Painter& painter, const Play& play, const DeskProcesses& desk,
                std::chrono::seconds time) {
  // A viewer of H.264 has had a key frame after this time, and a refinement of the picture.
  constexpr std::chrono::milliseconds kRest{2500};
  prepare(viewer, painter, play);
  const std::vector<pid_t> senders = viewer.processes();
  const auto state = [&] {
    return std::tuple{Clock::now(), viewer.received(), processor(senders), processor({desk.xvfb}),
                      processor({desk.wineserver})};
  };
  const auto [begin, received, sender, display, server] = state();
  const std::vector<Moment> painted = play.play(time);
  std::this_thread::sleep_until(begin + time);
  const auto [end, received_then, sender_then, display_then, server_then] = state();
  const double seconds = std::chrono::duration<double>(end - begin).count();
  std::this_thread::sleep_for(kRest);
  Figures figures{.scene = play.scene};
  set_delays(figures, painted, viewer.seen());
  figures.pictures = static_cast<double>(received_then.pictures - received.pictures) / seconds;
  figures.bytes = static_cast<double>(received_then.bytes - received.bytes) / seconds;
  figures.cores = (sender_then - sender) / seconds;
  figures.display = (display_then - display) / seconds;
  figures.server = (server_then - server) / seconds;
  if (painter.was_covered()) throw std::runtime_error("a window covered the scene " + play.scene);
  figures.likeness = viewer.similarity(painter.screen());
  return figures;
}

std::vector<Figures> measure_all(const Options& options) {
  vantelink_test::forget_host_certificates();
  const Desk desk;
  const std::string encoders =
      vantelink_test::wine_path(VANTELINK_SOURCE_DIR "/build/windows/tests/doubles/h264.dll");
  if (desk.exec({"regsvr32", "/s", "/n", "/i:sync", encoders}) != 0)
    throw std::runtime_error("the H.264 double cannot be registered; './dev bench change' builds it");
  // Wine's desktop ends when no program uses it.
  desk.spawn({"notepad"});
  desk.host("timeout 60 xdotool search --sync --onlyvisible --class notepad");
  const DeskProcesses processes = processes_of(desk);
  Painter painter(processes.display);
  std::vector<Figures> table;
  for (const Side& side : sides_of(desk, processes.display)) {
    const auto chosen = [&](const std::string& scene) {
      return std::regex_search(scene + '/' + side.name, options.filter);
    };
    if (std::ranges::none_of(scene_names(), chosen)) continue;
    const std::unique_ptr<Viewer> viewer = side.start();
    viewer->wait_for_picture();
    if (side.rises) let_rise(*viewer, painter);
    for (const Play& play : plays_of(desk, painter, *viewer)) {
      if (!chosen(play.scene)) continue;
      std::fprintf(stderr, "%s/%s\n", play.scene.c_str(), side.name.c_str());
      table.push_back(measure(*viewer, painter, play, processes, options.time));
      table.back().side = side.name;
      table.back().peer = side.peer;
    }
  }
  return table;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Options options;
    read_options(
        argc, argv,
        {{"seconds", [&](const auto& value) { options.time = std::chrono::seconds(std::stol(value)); }},
         {"filter", [&](const auto& value) { options.filter = value; }}});
    std::vector<Figures> table = measure_all(options);
    const std::vector<std::string> scenes = scene_names();
    std::ranges::stable_sort(table, {},
                             [&](const Figures& row) { return std::ranges::find(scenes, row.scene); });
    print(table);
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
