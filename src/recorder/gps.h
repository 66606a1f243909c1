// Where the unit is: the last sentence of a GPS receiver, and the position that goes into the metadata of
// takes and stills. Kept in memory only. Any thread.
#pragma once

#include <cstddef>

// Stores the sentence (its first 80 characters) and, when it is a $GPGGA sentence with a position and a time,
// the location in degrees. -1, and the location unchanged, for any other.
int orb_set_recorder_gps_data(const char* sentence);
void orb_load_recorder_gps_data(char* text, size_t size);

// Stores a location as it is given, each text cut to 20 characters.
void orb_set_recorder_gps_location(const char* latitude, const char* longitude, const char* time);
void orb_load_recorder_gps_location(char* latitude, size_t latitude_size, char* longitude,
                                    size_t longitude_size, char* time, size_t time_size);
