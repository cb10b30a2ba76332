#include "talvex/basics/Exceptions.h"

#include "talvex/basics/Conversions.h"

namespace Basics {

ExceptionBase::ExceptionBase(char const* file, char const* function, long line,
                             std::string const& detail)
    : fileName(file), functionName(function), line(line), detail(detail) {
    message = "\nError Occur:\n";
    message += "\t File: " + fileName;
    message += "\n\t Function: " + functionName;
    message += "\n\t Line: " + ToString<long>(line);
    message += "\n\t Detail: " + detail;
}

ExceptionBase::ExceptionBase(ExceptionBase const& other) = default;

ExceptionBase& ExceptionBase::operator=(ExceptionBase const& other) {
    if (this == &other) return *this;
    fileName = other.fileName;
    functionName = other.functionName;
    line = other.line;
    detail = other.detail;
    message = other.message;
    return *this;
}

ExceptionBase::~ExceptionBase() = default;

char const* ExceptionBase::what() const noexcept { return message.c_str(); }

}  // namespace Basics
