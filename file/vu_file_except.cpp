#include "vu_file_except.h"

#include <utility>

vu_file_except::vu_file_except(std::string text, std::int32_t error_code)
    : code(error_code), message(std::move(text)) {}
vu_file_except::vu_file_except(const vu_file_except&) = default;
vu_file_except& vu_file_except::operator=(const vu_file_except&) = default;
vu_file_except::~vu_file_except() = default;

std::string vu_file_except::what() const { return message; }
