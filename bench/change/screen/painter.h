// Draws on a desk's display as a program of the desk would, and notes when the X server has done it.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "e2e/support/png_codec.h"
#include "moments.h"
#include "screen/window.h"

namespace vantelink_bench {

enum class Scene {
  Still,      // a number changes about every 400 ms
  Typing,     // a character about every 120 ms
  Scrolling,  // a page of text moves up by a line, 15 times a second
  Film,       // 640x360 pixels change 25 times a second
  Busy,       // the film, and a number that changes about every 400 ms
};

inline constexpr std::array kScenes = {Scene::Still, Scene::Typing, Scene::Scrolling, Scene::Film,
                                       Scene::Busy};

const char* name_of(Scene scene);

// A window that covers Wine's virtual desktop. It is a child of the desktop's window, so programs that copy
// the X screen and programs that copy the desktop under Wine both see it. The window's top left corner shows
// a number, which tests/doubles/scripted_picture.h reads. In all scenes but Busy, the number is painted after
// each change of the screen, so a picture that shows the number shows that change too.
//
// All functions are for one thread at a time, and throw std::runtime_error when the X server refuses.
class Painter {
 public:
  // `display` is the display's name. Waits until Wine has made its desktop's window.
  explicit Painter(const std::string& display);

  // Draws the scene's first picture, and a new number, which is returned with its time.
  Moment prepare(Scene scene);
  // Plays the scene for this time and returns its numbers. Each time is the one at which the X server has
  // answered that all is drawn.
  std::vector<Moment> play(Scene scene, Clock::duration time);
  // Shows what is below the window, until the next scene. Returns the last number.
  std::uint32_t hide() {
    window_.hide();
    return number_;
  }
  // Whether another window has covered the scene since prepare(), so that it has to be prepared again.
  bool was_covered() { return window_.was_covered(); }
  // What is on the screen.
  vantelink_test::PngPicture screen() const { return window_.screen(); }

 private:
  void paint(Scene scene);
  Moment number();

  CoveringWindow window_;
  std::uint32_t number_ = 0;   // the last number
  std::uint32_t painted_ = 0;  // changes in this scene
};

}  // namespace vantelink_bench
