#include "readers/cradle/dataset_state.h"

DatasetState dataset_state;
