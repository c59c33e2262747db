// Opening a dataset: the header callback.
#pragma once

#include "readers/cradle/host_services.h"

HeaderCallback fld_read_header;
