#pragma once

// Names and failures as the layers above the engine see them.
#include "manager/store/failure.h"
#include "manager/store/names.h"
