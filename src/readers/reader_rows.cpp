#include "readers/reader_rows.h"
