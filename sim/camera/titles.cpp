#include "sim/camera/titles.h"

#include <cstddef>
#include <cstdio>

namespace sim_camera {
namespace {

constexpr char kNoCharacter = '#';

constexpr std::array<char, 256> make_characters() {
  std::array<char, 256> characters{};
  characters.fill(kNoCharacter);
  constexpr std::string_view kFrom0 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ& ?!1234567890";
  for (size_t i = 0; i < kFrom0.size(); ++i) characters[i] = kFrom0[i];
  characters[0x41] = '$';
  constexpr std::string_view kFrom49 = "\":'.,/-";
  for (size_t i = 0; i < kFrom49.size(); ++i) characters[0x49 + i] = kFrom49[i];
  return characters;
}

constexpr std::array<char, 256> kCharacters = make_characters();

}  // namespace

char title_character(uint8_t code) { return kCharacters[code]; }

void title_write(title_line& line, int first, std::span<const uint8_t> codes) {
  size_t at = static_cast<size_t>(first);
  for (const uint8_t code : codes) {
    if (at < line.text.size()) line.text[at++] = title_character(code);
  }
}

std::string_view title_text(const title_line& line) { return {line.text.data(), line.text.size()}; }

std::string titles_listing(const title_memory& titles) {
  std::string listing;
  for (size_t i = 0; i < titles.size(); ++i) {
    const title_line& line = titles[i];
    char row[96];
    std::snprintf(row, sizeof row, "%2zu %-3s position %2d colour %s blink %-3s \"%.*s\"\n", i,
                  line.shown ? "on" : "off", line.h_position,
                  kTitleColours[static_cast<size_t>(line.colour)].data(), line.blink ? "on" : "off",
                  kTitleLength, line.text.data());
    listing += row;
  }
  return listing;
}

}  // namespace sim_camera
