#include "recorder/xmp_packet.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "base/text.h"
#include "recorder/xml_text.h"

namespace {

constexpr std::string_view kPaddingMark = "<!-- XML whitespace as padding -->";
constexpr std::string_view kEndMark = "<?xpacket end";
constexpr std::string_view kTrailer = "<?xpacket end=\"w\"?>\r\n \r\n \r\n";
constexpr size_t kTemplateLine = 80;  // of a padding line, too
constexpr size_t kReadLine = 1023;
constexpr size_t kShotDateLimit = 80;

// A line's first tag in this order tells its field.
using field_text = std::span<char> (*)(orb_xmp_fields&);
struct tagged_field {
  std::string_view tag;
  field_text text;
  field_text rest = nullptr;  // behind a space
};

#define ORB_FIELD(member) [](orb_xmp_fields& fields) { return std::span<char>(fields.member); }
constexpr tagged_field kFields[] = {
    {"<exif:GPSTimeStamp>", ORB_FIELD(gps_timestamp)},
    {"<exif:GPSLatitude>", ORB_FIELD(gps_latitude)},
    {"<exif:GPSLongitude>", ORB_FIELD(gps_longitude)},
    {"<xmpDM:cameraModel>", ORB_FIELD(camera_model)},
    {"<xmpDM:cameraLabel>", ORB_FIELD(camera_label)},
    {"<xmpDM:projectName>", ORB_FIELD(project_name)},
    {"<xmpDM:composer>", ORB_FIELD(composer)},
    {"<xmpDM:scene>", ORB_FIELD(scene)},
    {"<xmpDM:shotDate>", ORB_FIELD(shot_date), ORB_FIELD(shot_time)},
    {"<xmpDM:comment>", ORB_FIELD(comment)},
};
#undef ORB_FIELD

const tagged_field& kComment = kFields[std::size(kFields) - 1];

const tagged_field* find_field(std::string_view line) {
  for (const tagged_field& field : kFields) {
    if (line.find(field.tag) != std::string_view::npos) return &field;
  }
  return nullptr;
}

// --- lines ---

// Takes the next line with its line feed, of which the first `limit` bytes are kept; nothing at the end.
std::optional<std::string_view> take_line(std::string_view* text, size_t limit) {
  if (text->empty()) return std::nullopt;
  const std::string_view line = text->substr(0, text->find('\n'));
  const std::string_view whole = text->substr(0, line.size() + 1);
  text->remove_prefix(whole.size());
  return whole.substr(0, limit);
}

// A line around the text between its first two double quotes.
struct quoted_line {
  std::string_view head;  // up to the first quote
  std::string_view value;
  std::string_view tail;  // from the second quote on
};

std::optional<quoted_line> split_at_quotes(std::string_view line) {
  const size_t first = line.find('"');
  if (first == std::string_view::npos) return std::nullopt;
  const size_t second = line.find('"', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  return quoted_line{line.substr(0, first + 1), line.substr(first + 1, second - first - 1),
                     line.substr(second)};
}

// --- building ---

struct packet_line {
  const tagged_field* field;  // null for a line that is copied
  std::string_view head;
  std::string_view tail;
  std::string value = {};
};

// The template's lines up to the padding line. `ended`: there was one.
std::vector<packet_line> template_lines(std::string_view xmp_template, bool* ended) {
  std::vector<packet_line> lines;
  *ended = false;
  while (const auto line = take_line(&xmp_template, kTemplateLine)) {
    const tagged_field* field = find_field(*line);
    if (field == nullptr) {
      *ended = line->find(kPaddingMark) != std::string_view::npos;
      if (*ended) break;
      lines.push_back({nullptr, *line, {}});
    } else if (const auto quoted = split_at_quotes(*line)) {
      lines.push_back({field, quoted->head, quoted->tail});
    }
  }
  return lines;
}

std::string field_value(const tagged_field& field, orb_xmp_fields fields) {
  std::string value = field.text(fields).data();
  if (field.rest != nullptr) value += std::string(" ") + field.rest(fields).data();
  return as_utf8(value);
}

// Gives the fields their values; the comment takes what room the others leave.
void fill_lines(std::vector<packet_line>& lines, const orb_xmp_fields& fields, size_t room) {
  for (const packet_line& line : lines) room -= std::min(room, line.head.size() + line.tail.size());
  for (const bool comments : {false, true}) {
    for (packet_line& line : lines) {
      if (line.field == nullptr || (line.field == &kComment) != comments) continue;
      const size_t in_line = kReadLine - line.head.size() - line.tail.size();
      line.value = xml_escaped(field_value(*line.field, fields), std::min(room, in_line));
      room -= line.value.size();
    }
  }
}

// Writes behind one another what has room.
struct packet_writer {
  std::span<char> left;
  void put(std::string_view text) {
    const size_t length = std::min(text.size(), left.size());
    std::copy_n(text.begin(), length, left.begin());
    left = left.subspan(length);
  }
};

// Lines of spaces, but for the trailer's room; the spaces are there.
void put_padding(packet_writer& packet) {
  while (packet.left.size() > kTrailer.size()) {
    const size_t length = std::min(kTemplateLine, packet.left.size() - kTrailer.size());
    const size_t line_end = std::min<size_t>(length, 2);
    packet.left = packet.left.subspan(length - line_end);
    packet.put(std::string_view("\r\n").substr(2 - line_end));
  }
}

}  // namespace

int fill_xmp_packet(std::string_view xmp_template, const orb_xmp_fields& fields, std::span<char> packet) {
  bool ended = false;
  std::vector<packet_line> lines = template_lines(xmp_template, &ended);
  const size_t fixed = kXmpSignature.size() + kTrailer.size();
  fill_lines(lines, fields, packet.size() - std::min(packet.size(), fixed));

  packet_writer writer{packet};
  writer.put(kXmpSignature);
  for (const packet_line& line : lines) {
    for (const std::string_view part : {line.head, std::string_view(line.value), line.tail}) writer.put(part);
  }
  std::fill(writer.left.begin(), writer.left.end(), ' ');
  if (!ended) return -1;
  put_padding(writer);
  writer.put(kTrailer);
  return 0;
}

// --- reading ---

static void keep_value(const tagged_field& field, std::string_view value, orb_xmp_fields* fields) {
  const auto keep = [fields](field_text text, std::string_view part) {
    const std::span<char> kept = text(*fields);
    copy_text(kept.data(), kept.size(), as_utf8(xml_unescaped(part)));
  };
  if (field.rest == nullptr) return keep(field.text, value);
  value = value.substr(0, kShotDateLimit);
  const size_t space = value.find(' ');
  if (space == std::string_view::npos) return;
  keep(field.text, value.substr(0, space));
  keep(field.rest, value.substr(space + 1));
}

int parse_xmp_packet(std::string_view packet, orb_xmp_fields* fields) {
  *fields = {};
  while (const auto line = take_line(&packet, kReadLine)) {
    const tagged_field* field = find_field(*line);
    const auto quoted = field == nullptr ? std::nullopt : split_at_quotes(*line);
    if (quoted) keep_value(*field, quoted->value, fields);
    if (line->find(kEndMark) != std::string_view::npos) return 0;
  }
  return -1;
}
