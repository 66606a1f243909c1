// Whether the camera answers: an ICMP echo (RFC 792), asked for every second.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

struct ev_loop;

// Main loop, once.
void start_camera_ping(struct ev_loop* loop);

// Whether the last echo was answered. Any thread.
bool is_camera_reachable();

// --- the packets; pure ---

inline constexpr size_t kEchoSize = 40;

// An echo request with 32 bytes of payload.
std::array<uint8_t, kEchoSize> echo_request(uint16_t identifier, uint16_t sequence);

// What an IPv4 packet says to that request: nothing (it is broken, or of somebody else), that the camera is
// there (a reply of another machine says nothing), or that it cannot be reached.
enum class echo_answer { none, reply, unreachable };
echo_answer judge_echo_packet(std::span<const uint8_t> packet, uint16_t identifier, uint16_t sequence);
