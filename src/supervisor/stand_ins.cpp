#include "supervisor/stand_ins.h"

#include "base/text.h"

void orb_report_logger_high_temperature_warning() {}
void orb_report_logger_up_temperature(double) {}
void orb_report_logger_psb_temperature(double) {}
void orb_report_logger_camera_lens_temperature(double) {}
void orb_report_logger_camera_fpga_temperature(double) {}
void orb_report_logger_camera_cpu_temperature(double) {}
void orb_report_logger_invalid_camera_lens_temperature() {}
void orb_report_logger_invalid_camera_fpga_temperature() {}
void orb_report_logger_invalid_camera_cpu_temperature() {}
void orb_check_logger_reset() {}

int orb_get_installer_software_update_available(char*, size_t) { return 0; }
int orb_get_installer_firmware_update_available(char*, size_t) { return 0; }
int orb_get_installer_camera_update_available(char*, size_t) { return 0; }

void orb_load_heading(int, int, int, char* text, size_t size, float, float, float) {
  copy_text(text, size, "XX");
}
