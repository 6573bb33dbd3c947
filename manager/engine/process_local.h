#pragma once

// What a process has one of, as the layers above the engine see it.
#include "manager/store/process_local.h"
