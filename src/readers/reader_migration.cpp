#include "readers/reader_migration.h"
