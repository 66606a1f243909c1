#include "sim/camera/title_markup.h"

#include <algorithm>
#include <cstddef>

namespace sim_camera {
namespace {

// In the order of kTitleColours.
constexpr std::string_view kColours[] = {"#ffffff", "#ffff00", "#ff60ff", "#ff3030",
                                         "#00ffff", "#40ff40", "#6080ff"};
static_assert(std::size(kColours) == std::size(kTitleColours));

void append_escaped(std::string& markup, std::string_view text) {
  for (const char c : text) {
    if (c == '&') {
      markup += "&amp;";
    } else {
      markup += c;
    }
  }
}

}  // namespace

std::string title_markup(const title_memory& titles, bool blink_dark) {
  std::string markup;
  bool any = false;
  for (const title_line& line : titles) {
    if (!markup.empty()) markup += '\n';
    if (!line.shown || (line.blink && blink_dark)) {
      markup += ' ';  // an empty row keeps its height
      continue;
    }
    any = true;
    markup.append(static_cast<size_t>(line.h_position) + 1, ' ');
    markup += "<span foreground=\"";
    markup += kColours[static_cast<size_t>(line.colour)];
    markup += "\">";
    append_escaped(markup, title_text(line));
    markup += "</span>";
  }
  return any ? markup : std::string();
}

}  // namespace sim_camera
