// The screen of an X11 display.

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

#include "qelbase/outside/system/machine_internal.h"

namespace qel::sys {

namespace {

const xcb_visualtype_t* visualOf(const xcb_screen_t& screen) {
  for (auto depth = xcb_screen_allowed_depths_iterator(&screen); depth.rem > 0;
       xcb_depth_next(&depth)) {
    for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem > 0;
         xcb_visualtype_next(&visual)) {
      if (visual.data->visual_id == screen.root_visual) return visual.data;
    }
  }
  return nullptr;
}

ScreenFigures figuresOf(const xcb_setup_t& setup, const xcb_screen_t& screen) {
  ScreenFigures figures;
  figures.width = screen.width_in_pixels;
  figures.height = screen.height_in_pixels;
  figures.bits_per_pixel = screen.root_depth;
  for (auto format = xcb_setup_pixmap_formats_iterator(&setup); format.rem > 0;
       xcb_format_next(&format)) {
    if (format.data->depth == screen.root_depth)
      figures.bits_per_pixel = format.data->bits_per_pixel;
  }
  const xcb_visualtype_t* const visual = visualOf(screen);
  // Up to here a pixel is a place in a table of colours; in the classes behind it is a colour.
  const bool has_palette = visual && visual->_class <= XCB_VISUAL_CLASS_PSEUDO_COLOR;
  if (has_palette) figures.palette_size = visual->colormap_entries;
  return figures;
}

}  // namespace

std::optional<ScreenFigures> ReadDisplay() {
  const char* const display = std::getenv("DISPLAY");
  if (!display || !*display) return std::nullopt;
  int number = 0;
  const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection(
      xcb_connect(nullptr, &number), xcb_disconnect);
  if (xcb_connection_has_error(connection.get()) != 0) return std::nullopt;
  const xcb_setup_t* const setup = xcb_get_setup(connection.get());
  auto screens = xcb_setup_roots_iterator(setup);
  for (; number > 0 && screens.rem > 1; --number) xcb_screen_next(&screens);
  if (screens.rem < 1) return std::nullopt;
  return figuresOf(*setup, *screens.data);
}

}  // namespace qel::sys
