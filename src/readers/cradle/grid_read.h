// Reading one grid: the data callback.
#pragma once

#include "readers/cradle/host_services.h"

DataCallback fld_read_data;
