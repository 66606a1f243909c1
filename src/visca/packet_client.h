// A small synchronous VISCA client: it owns one TCP socket to a camera block, writes a packet and waits for
// the reply. It stands beside the camera thread, which the daemon speaks through; nothing in the daemon makes
// one. VISCA is Sony's published camera control protocol ("VISCA command list").
//
// One thread uses a Camera at a time, and each reply that is read holds it up for as long as 8 s. Replies and
// failures are told on standard output and standard error. A packet that cannot be written, and in the
// destructor a socket that cannot be closed, ends the process with status 1.
#pragma once

#include <cstdint>
#include <vector>

struct visca_operation;

class Camera {
 public:
  // Connects to `address` (dotted quad) and `port`. On failure the object is good for closeSocket and
  // initSocket only.
  Camera(unsigned short port, const char* address);
  ~Camera();
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;

  // Connects, in place of a socket that is still open. 0, or 1 on failure.
  int initSocket(unsigned short port, const char* address);
  // The result of close(). Without a new socket the destructor then ends the process.
  int closeSocket();
  void initCamera() {}

  // One reply of at most `length` bytes, as one read gives it; empty when none comes, or when it does not end
  // with the terminator.
  std::vector<unsigned char> readVISCAReply(int length);

  // Appends the terminator to `packet` and writes it, then reads a reply of at most `length` bytes; with
  // `waitCompletion` a second one, which takes the place of the first (the acknowledge). An empty packet is
  // not written, but its reply is read.
  std::vector<unsigned char> sendVISCAPacket(std::vector<unsigned char>& packet, int length,
                                             bool waitCompletion);

  void CAM_AEAuto();
  void CAM_AEManual();
  void CAM_cameraReset();
  // The setting 1 to 21, sent as an iris position of 22 - speed; any other is position 0.
  void CAM_shutterSpeed(int speed);
  void IF_clear();

  // Inquiries answer false or 0 when the camera gives no valid reply.
  bool CAM_powerInq();      // on
  bool CAM_focusModeInq();  // auto focus
  void CAM_versionInq();    // the reply is only logged
  void CAM_DZoomPosInq();   // the reply is only logged
  uint16_t FocusDistance();
  uint8_t CAM_irisPosInq();  // the reply's first data byte, as it stands

 private:
  void write_packet(const std::vector<unsigned char>& packet) const;
  std::vector<unsigned char> perform(const visca_operation& wanted);
  // The data bytes of the reply.
  std::vector<unsigned char> inquire(const visca_operation& wanted);

  int32_t fd = -1;
  uint8_t command_header = 0x81;    // to camera 1
  uint8_t broadcast_header = 0x88;  // to every camera
  uint8_t terminator = 0xFF;
};
