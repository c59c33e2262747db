// "LS_ALE": moving-grid data. Nothing of it reaches the host; the section is checked and passed
// over.
#pragma once

#include <cstdint>

[[nodiscard]] bool read_ale_section(int32_t unit);
