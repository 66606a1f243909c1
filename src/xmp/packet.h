// The bytes of an XMP packet: made from the lines of a template, and read line by line. Pure.
#pragma once

#include <span>
#include <string_view>

#include "xmp/xmp.h"

// Every packet begins with it, its zero byte included, as in a JPEG's APP1 segment; ours in MP4 do, too.
inline constexpr std::string_view kXmpSignature{"http://ns.adobe.com/xap/1.0/\0", 29};

// What is read of a packet.
inline constexpr size_t kXmpReadLimit = 4096;

// Fills the whole packet. A line of the template that has a field's tag carries the field between its first
// two double quotes; the padding line stands for the rest of the packet. 0, or -1 without a padding line: the
// rest is spaces.
int fill_xmp_packet(std::string_view xmp_template, const orb_xmp_fields& fields, std::span<char> packet);

// Clears the record and fills it from the packet's lines. 0, or -1 when the packet has no end.
int parse_xmp_packet(std::string_view packet, orb_xmp_fields* fields);

// Whether `fresh`, made of `fields`, can take the place of the packet `old` so that nothing is lost but the
// old comment: `old` has a line of ours, its other lines are in `fresh`, too, or say nothing, our lines hold
// no more than what is read from them, and `fresh` reads back as `fields`.
bool can_replace_packet(std::string_view old, std::string_view fresh, const orb_xmp_fields& fields);
