#pragma once

#include <cstddef>

/// @return how many records of the process's pool of safe pointers are taken.
size_t TakenRecords();
