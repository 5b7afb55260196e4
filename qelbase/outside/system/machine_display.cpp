// The screen of an X11 display. The library that talks to it is looked for when it is needed, so
// that a machine without displays needs none.

#include <dlfcn.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

#include "qelbase/outside/system/machine_internal.h"

namespace qel::sys {

namespace {

class DisplayLibrary {
 public:
  // Loaded once; null if it is missing.
  static const DisplayLibrary* get() {
    static const DisplayLibrary library;
    return library.m_is_whole ? &library : nullptr;
  }

  decltype(&xcb_connect) connect = nullptr;
  decltype(&xcb_connection_has_error) has_error = nullptr;
  decltype(&xcb_disconnect) disconnect = nullptr;
  decltype(&xcb_get_setup) setup = nullptr;
  decltype(&xcb_setup_roots_iterator) screens = nullptr;
  decltype(&xcb_screen_next) next_screen = nullptr;
  decltype(&xcb_setup_pixmap_formats_iterator) formats = nullptr;
  decltype(&xcb_format_next) next_format = nullptr;
  decltype(&xcb_screen_allowed_depths_iterator) depths = nullptr;
  decltype(&xcb_depth_next) next_depth = nullptr;
  decltype(&xcb_depth_visuals_iterator) visuals = nullptr;
  decltype(&xcb_visualtype_next) next_visual = nullptr;

 private:
  DisplayLibrary() : m_handle(::dlopen("libxcb.so.1", RTLD_NOW | RTLD_LOCAL)) {
    m_is_whole =
        m_handle && find(connect, "xcb_connect") && find(has_error, "xcb_connection_has_error") &&
        find(disconnect, "xcb_disconnect") && find(setup, "xcb_get_setup") &&
        find(screens, "xcb_setup_roots_iterator") && find(next_screen, "xcb_screen_next") &&
        find(formats, "xcb_setup_pixmap_formats_iterator") &&
        find(next_format, "xcb_format_next") &&
        find(depths, "xcb_screen_allowed_depths_iterator") && find(next_depth, "xcb_depth_next") &&
        find(visuals, "xcb_depth_visuals_iterator") && find(next_visual, "xcb_visualtype_next");
  }

  template <typename Function>
  bool find(Function& function, const char* name) {
    function = reinterpret_cast<Function>(::dlsym(m_handle, name));
    return function != nullptr;
  }

  void* m_handle;
  bool m_is_whole = false;
};

const xcb_visualtype_t* visualOf(const DisplayLibrary& xcb, const xcb_screen_t& screen) {
  for (auto depth = xcb.depths(&screen); depth.rem > 0; xcb.next_depth(&depth)) {
    for (auto visual = xcb.visuals(depth.data); visual.rem > 0; xcb.next_visual(&visual)) {
      if (visual.data->visual_id == screen.root_visual) return visual.data;
    }
  }
  return nullptr;
}

ScreenFigures figuresOf(const DisplayLibrary& xcb, const xcb_setup_t& setup,
                        const xcb_screen_t& screen) {
  ScreenFigures figures;
  figures.width = screen.width_in_pixels;
  figures.height = screen.height_in_pixels;
  figures.bits_per_pixel = screen.root_depth;
  for (auto format = xcb.formats(&setup); format.rem > 0; xcb.next_format(&format)) {
    if (format.data->depth == screen.root_depth)
      figures.bits_per_pixel = format.data->bits_per_pixel;
  }
  const xcb_visualtype_t* const visual = visualOf(xcb, screen);
  // Up to here a pixel is a place in a table of colours; in the classes behind it is a colour.
  const bool has_palette = visual && visual->_class <= XCB_VISUAL_CLASS_PSEUDO_COLOR;
  if (has_palette) figures.palette_size = visual->colormap_entries;
  return figures;
}

}  // namespace

std::optional<ScreenFigures> ReadDisplay() {
  const char* const display = std::getenv("DISPLAY");
  const DisplayLibrary* const xcb = display && *display ? DisplayLibrary::get() : nullptr;
  if (!xcb) return std::nullopt;
  int number = 0;
  const std::unique_ptr<xcb_connection_t, decltype(xcb->disconnect)> connection(
      xcb->connect(nullptr, &number), xcb->disconnect);
  if (xcb->has_error(connection.get()) != 0) return std::nullopt;
  const xcb_setup_t* const setup = xcb->setup(connection.get());
  auto screens = xcb->screens(setup);
  for (; number > 0 && screens.rem > 1; --number) xcb->next_screen(&screens);
  if (screens.rem < 1) return std::nullopt;
  return figuresOf(*xcb, *setup, *screens.data);
}

}  // namespace qel::sys
