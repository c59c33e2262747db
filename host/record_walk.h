// Walking a file record by record, knowing nothing of its sections but that each is a name, a list
// of items and an end record: finds where a damaged file stops making sense.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace fld_host
{

// The record that the walk has in hand, or that the file should have had next.
struct WalkPlace {
    int64_t record = 0;      // from 1; 0: the file is of no known kind, or not there
    int64_t byte = 0;        // where the record begins
    int32_t grid = 0;        // from 1; 0: the header
    std::string section;     // of the grid, or keyword of the header; empty: between them
    int64_t item = 0;        // of the section, from 1; 0: the record with its name
    int64_t data_record = 0; // of the item, from 1; 0: its descriptor, or the end record
    int64_t data_records = 0;
};

// Items of one shape that follow one another.
struct ItemShape {
    int32_t element_size; // bytes
    int32_t per_record;   // elements
    int32_t records;
    int64_t items; // of this shape
};

// A section of a grid, or a keyword of the header, from its name to its end record.
struct WalkedSection {
    int32_t grid; // from 1; 0: the header
    std::string name;
    int64_t byte; // where its name begins
    int64_t bytes;
    int64_t items;
    std::vector<ItemShape> shapes; // of the first items, some dozens of shapes at most
};

struct FileWalk {
    int64_t bytes = 0;
    bool big_endian = false;
    int64_t records = 0; // in good order
    int32_t grids = 0;
    std::string damage;                  // in words; empty: the walk arrived at "OverlapEnd"
    WalkPlace place;                     // of the damage
    std::vector<WalkedSection> sections; // the complete ones, in their order
    // Up to where everything is in good order and no section is left open: 0, or in a grid.
    int64_t intact_bytes = 0;
    int64_t bytes_after_end = 0; // behind "OverlapEnd"
};

// Reads markers, names and descriptors only.
FileWalk walk_file(const std::string& path);

// A record of 32 characters as it stands in a file, with its markers.
std::string name_record(const std::string& name, bool big_endian);

} // namespace fld_host
