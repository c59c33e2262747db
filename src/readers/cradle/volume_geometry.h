// "LS_VolumeGeometry" and "LS_VolumeGeometryArray": named volume regions. Nothing of them reaches
// the host; the sections are checked and passed over.
#pragma once

#include <cstdint>

[[nodiscard]] bool read_volume_geometry_section(int32_t unit);
[[nodiscard]] bool read_volume_geometry_array_section(int32_t unit);
