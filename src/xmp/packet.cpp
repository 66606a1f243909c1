#include "xmp/packet.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/text.h"
#include "xmp/xml_text.h"

namespace {

constexpr std::string_view kPaddingMark = "<!-- XML whitespace as padding -->";
constexpr std::string_view kEndMark = "<?xpacket end";
constexpr std::string_view kMetaTag = "<x:xmpmeta";
constexpr std::string_view kBlanks{" \t\r\n\0", 5};
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

// --- replacing ---

namespace {

std::string_view trimmed(std::string_view text) {
  const size_t start = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(start, text.find_last_not_of(kBlanks) + 1 - start);
}

// Whether a line says nothing, only declares namespaces or names the program that wrote the packet.
bool says_nothing(std::string_view line) {
  if (line == kPaddingMark) return true;
  if (line.starts_with(kMetaTag)) line.remove_prefix(kMetaTag.size());
  while (!(line = trimmed(line)).empty() && line != ">") {
    const auto quoted = split_at_quotes(line);
    if (!quoted || quoted->head.find_first_of(" \t\r<>'") != std::string_view::npos) return false;
    if (!quoted->head.starts_with("xmlns:") && quoted->head != "x:xmptk=\"") return false;
    line = quoted->tail.substr(1);
  }
  return true;
}

struct field_line {
  const tagged_field* field;
  quoted_line text;
};

struct packet_outline {
  std::vector<field_line> fields;
  std::set<std::string_view> others;  // the other lines that say something
};

// Of the whole packet, its lines uncut. In front of its markup stands the signature, or the end of it.
packet_outline outline_of(std::string_view packet) {
  packet_outline outline;
  packet.remove_prefix(std::min(packet.find('<'), packet.size()));
  while (const auto whole = take_line(&packet, std::string_view::npos)) {
    const std::string_view line = trimmed(*whole);
    const tagged_field* field = find_field(line);
    const auto quoted = field == nullptr ? std::nullopt : split_at_quotes(line);
    if (quoted) {
      outline.fields.push_back({field, *quoted});
    } else if (!says_nothing(line)) {
      outline.others.insert(line);
    }
  }
  return outline;
}

bool is_same_layout(const field_line& a, const field_line& b) {
  return a.text.head == b.text.head && a.text.tail == b.text.tail;
}

// Whether nothing but the field's own element stands around its value.
bool is_bare(const field_line& line) {
  const std::string tag(line.field->tag);
  const std::string parts[] = {tag, "</" + tag.substr(1), "<rdf:Description", "rdf:value",
                               "</rdf:Description>"};
  std::string around = std::string(line.text.head) + std::string(line.text.tail);
  for (const std::string& part : parts) {
    const size_t at = around.find(part);
    if (at != std::string::npos) around.replace(at, part.size(), " ");
  }
  return around.find_first_not_of(" \t\r\"=/>") == std::string::npos;
}

// Whether a line says no more than the value that was read from it: all of it, and nothing around it.
bool is_told_again(const field_line& line, const orb_xmp_fields& read, const packet_outline& fresh) {
  const std::string_view value = line.text.value;
  const bool is_whole = value.empty() || (!has_other_references(value) &&
                                          as_utf8(xml_unescaped(value)) == field_value(*line.field, read));
  if (!is_whole && line.field != &kComment) return false;
  return is_bare(line) ||
         std::ranges::any_of(fresh.fields, [&](const field_line& f) { return is_same_layout(f, line); });
}

bool reads_as(std::string_view packet, const orb_xmp_fields& fields) {
  orb_xmp_fields read;
  return parse_xmp_packet(packet.substr(0, kXmpReadLimit), &read) == 0 &&
         std::ranges::all_of(kFields, [&](const tagged_field& field) {
           return field_value(field, read) == field_value(field, fields);
         });
}

}  // namespace

bool can_replace_packet(std::string_view old, std::string_view fresh, const orb_xmp_fields& fields) {
  orb_xmp_fields read;
  if (parse_xmp_packet(old.substr(0, kXmpReadLimit), &read) != 0 || !reads_as(fresh, fields)) return false;
  const packet_outline was = outline_of(old);
  const packet_outline will_be = outline_of(fresh);
  return !was.fields.empty() && std::ranges::includes(will_be.others, was.others) &&
         std::ranges::all_of(was.fields,
                             [&](const field_line& line) { return is_told_again(line, read, will_be); });
}
