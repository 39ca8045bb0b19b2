#include "runtime/WyRuntimeError.h"

WyRuntimeError::WyRuntimeError(const std::string& text) : message(text) {}

WyRuntimeError::WyRuntimeError(const char* text) : message(text == nullptr ? "" : text) {}

WyRuntimeError::~WyRuntimeError() = default;

const char* WyRuntimeError::what() const noexcept {
    return message.c_str();
}
