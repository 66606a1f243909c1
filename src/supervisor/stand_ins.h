// Until the data logger, the installer and the heading are there.
#pragma once

#include <cstddef>

void orb_report_logger_high_temperature_warning();
void orb_report_logger_up_temperature(double celsius);
void orb_report_logger_psb_temperature(double celsius);
void orb_report_logger_camera_lens_temperature(double celsius);
void orb_report_logger_camera_fpga_temperature(double celsius);
void orb_report_logger_camera_cpu_temperature(double celsius);
void orb_report_logger_invalid_camera_lens_temperature();
void orb_report_logger_invalid_camera_fpga_temperature();
void orb_report_logger_invalid_camera_cpu_temperature();
void orb_check_logger_reset();

int orb_get_installer_software_update_available(char* path, size_t size);
int orb_get_installer_firmware_update_available(char* path, size_t size);
int orb_get_installer_camera_update_available(char* path, size_t size);

void orb_load_heading(int mag_x, int mag_y, int mag_z, char* text, size_t size, float accel_x, float accel_y,
                      float accel_z);
