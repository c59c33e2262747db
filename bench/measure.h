// What is measured of one file: seconds, and the memory that the library takes for itself.
#pragma once

#include "write_file.h"

#include <cstdint>
#include <string>

struct Seconds {
    double plain_read = 0; // fread of the whole file into memory that is already there
    double open = 0;       // the header callback
    double data = 0;       // the data callback, of all grids
    // Parts of the data callback when the file has one grid with faces: up to the first face, to
    // the last face, to the last cell, and after it.
    double nodes = 0, surfaces = 0, elements = 0, variables = 0;
    double fortran = 0; // the Fortran runtime, record by record; 0 when not asked for
};

// Both throw std::runtime_error when the library cannot be had, fails, or does not deliver what
// was written.
Seconds measure_file(const std::string& library, const std::string& path, const FileFacts& facts,
                     bool with_fortran, bool big_endian);
int64_t measure_peak(const std::string& library, const std::string& path, const FileFacts& facts);

// The whole file into fresh memory: what a process of its own is compared with.
void read_into_fresh_memory(const std::string& path);
