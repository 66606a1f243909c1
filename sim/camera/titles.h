// The title memory of the simulated camera: what its overlay would show.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace sim_camera {

inline constexpr int kTitleLines = 11;
inline constexpr int kTitleLength = 20;
inline constexpr int kTitleColumns = 32;  // h_position is 0 to 31
inline constexpr std::string_view kTitleColours[] = {"wht", "yel", "vio", "red", "cyn", "grn", "blu"};

struct title_line {
  std::array<char, kTitleLength> text = blank();  // readable ASCII; '#' for a code without a character
  int h_position = 0;                             // column of the first character
  int colour = 0;                                 // index into kTitleColours
  bool blink = false;
  bool shown = false;

  static constexpr std::array<char, kTitleLength> blank() {
    std::array<char, kTitleLength> spaces{};
    spaces.fill(' ');
    return spaces;
  }
  bool operator==(const title_line&) const = default;
};

using title_memory = std::array<title_line, kTitleLines>;

// The character that the camera draws for a code of the title commands.
char title_character(uint8_t code);

// Replaces the characters of a line from `first` (0 or 10) on by `codes`, as far as the line goes.
void title_write(title_line& line, int first, std::span<const uint8_t> codes);

std::string_view title_text(const title_line& line);

// One text line a title line: number, on or off, position, colour, blink, "text".
std::string titles_listing(const title_memory& titles);

}  // namespace sim_camera
