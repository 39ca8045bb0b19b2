#include "runtime/ISinglton.h"

ISinglton::~ISinglton() = default;
