#include "readers/smart_card_types.h"
