// Large FLD files for measuring: blocks of hexahedra, written as fast as the disk takes them.
#pragma once

#include <cstdint>
#include <string>

struct FileForm {
    int64_t nodes = 8'000'000; // about so many in all grids together
    int32_t grids = 1;
    int32_t scalars = 3;
    bool vector = false; // one more variable, of three components
    bool cylindrical = false;
    bool cells = true;
    bool results = false; // variables alone
    bool big_endian = false;
    bool doubles = false;
    int64_t values_per_record = 0; // 0: an array is one record
    int64_t subrecord = 0;         // bytes, a multiple of 8; 0: a record is one sub-record
    int64_t faces = 1000;          // boundary faces that are no walls, in the first grid
    int64_t wall_faces = 0;        // in the first grid
};

// What was written.
struct FileFacts {
    int64_t bytes = 0;
    int64_t records = 0;
    int64_t nodes = 0;      // of all grids
    int64_t grid_nodes = 0; // of each grid
    int64_t grid_cells = 0;
    int64_t faces = 0; // boundary faces of all kinds
};

// Throws std::runtime_error when the file cannot be written.
FileFacts write_fld_file(const std::string& path, const FileForm& form);
