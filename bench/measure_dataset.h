// What is measured of the host library: seconds.
#pragma once

#include "write_file.h"

#include <string>

struct DatasetSeconds {
    double blocks = 0;         // everything, cells and faces in blocks
    double functions = 0;      // everything, by a function for each shape
    double one_variable = 0;   // the first variable alone
    double plain_variable = 0; // a plain read of as many bytes, into memory that is already there
};

// A file of one grid, by the linked reader into memory that is already there. Throws
// std::runtime_error when it does not deliver what was written.
DatasetSeconds measure_dataset(const std::string& path, const FileFacts& facts);

struct SwitchSeconds {
    double open = 0; // of the first file
    double turn = 0; // what a read costs more after one of the other dataset
    double list = 0; // the first file's series, with the status of each file; 0 without a series
};

// Two datasets that are open, of as many nodes each, and read in turns, against one read as often.
SwitchSeconds measure_switch(const std::string& first, const std::string& second);
