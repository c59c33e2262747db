// Makes the calls fail that the library asks of the system, and counts what it holds:
// fld_reader_faulty.so is the library's own objects with the wrappers of faults.cpp around them.
#pragma once

#include "linked_host.h"

#include <cstdint>

namespace fld_test
{

enum CallKind { ALLOCATION, READ, OPEN, CLOSE, STATUS, DIRECTORY, EXPRESSION, CALL_KINDS };

// How a read fails: with an error, as if the file ended there, or so that it is no failure at all:
// interrupted once, or from then on with half of the bytes.
enum FaultWay { ERROR, END, SHORT };

struct FaultPlan {
    int kind = ALLOCATION;
    int64_t first = 0; // the number of the first call that fails, from 1; 0: none does
    bool lasts = false;
    FaultWay way = ERROR;
};

struct Faults {
    FaultPlan plan = {};
    int64_t calls[CALL_KINDS] = {};
    int64_t bytes_read = 0, comparisons = 0; // of texts
    int64_t peak_bytes = 0;
    int64_t bytes = 0, blocks = 0, handles = 0; // memory and open files, listings, expressions
    int64_t seconds_later = 0;                  // that the clock shows
};

} // namespace fld_test

// Gives the one record of the loaded module.
using FaultsFunction = fld_test::Faults*();
extern "C" __attribute__((visibility("default"))) FaultsFunction fld_faults;

// Visits a file through the host library of the module.
extern "C" __attribute__((visibility("default"))) void fld_visit(const char* path,
                                                                 fld_test::LinkedVisit* visit);
