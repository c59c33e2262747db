// The files of the open dataset, and its end.
#pragma once

#include "readers/cradle/dataset_state.h"
#include "readers/cradle/host_services.h"

#include <cstdint>

// Opens a file on one of the dataset's units: as nzn_open_unit, but -1, which means "no unit", and
// names that the dataset has no room for cannot be opened.
[[nodiscard]] int32_t open_dataset_unit(int32_t unit, const char* name);

// Told of every file before it is opened by this; null: nobody is.
using FileOpened = void(void* context, const char* path);
void tell_of_dataset_files(FileOpened* told, void* context);

// Closes the dataset's open file, if there is one.
void close_current_unit();

// The same at the end of a callback, which opened its files on this unit: also when another
// callback was called from inside one of its services.
void close_dataset_unit(int32_t unit);

// Keeps the name of a file that was opened, which is known to fit.
void keep_file_name(const char* name, char (&kept)[FILE_NAME_LENGTH + 1]);

// Empties the table of the series.
void empty_time_series();

// The close callback: releases all that the dataset holds, and ends a callback that is running.
CloseCallback fld_free_dataset;
