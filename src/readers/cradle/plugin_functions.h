// What the host can ask the library for by name.
#pragma once

#include <cstdint>

// Announces both readers to the host.
void register_data_readers();

// Closes a unit of the RawUnitTable; never one that a reader opened.
void zn_close_unit(int32_t unit);
