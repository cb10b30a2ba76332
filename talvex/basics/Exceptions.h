#pragma once

#include <exception>
#include <string>

namespace Basics {

// Root of the library's exceptions. The diagnostic text is composed once, at construction, from
// the raising site and the raiser's detail.
class ExceptionBase : public std::exception {
  public:
    ExceptionBase(char const* file, char const* function, long line, std::string const& detail);
    ExceptionBase(ExceptionBase const& other);
    ExceptionBase& operator=(ExceptionBase const& other);
    ~ExceptionBase() override;

    char const* what() const noexcept override;

  private:
    std::string fileName;
    std::string functionName;
    long line;
    std::string detail;
    std::string message;
};

// NOLINTBEGIN(bugprone-macro-parentheses): the argument is a class name.
#define TALVEX_DECLARE_EXCEPTION(Name)                                                     \
    class Name : public ExceptionBase {                                                    \
      public:                                                                              \
        Name(char const* file, char const* function, long line, std::string const& detail) \
            : ExceptionBase(file, function, line, detail) {}                               \
        Name& operator=(ExceptionBase const& other) {                                      \
            if (this != &other) ExceptionBase::operator=(other);                           \
            return *this;                                                                  \
        }                                                                                  \
    }

TALVEX_DECLARE_EXCEPTION(InvalidLogicException);
TALVEX_DECLARE_EXCEPTION(InvalidArgumentException);
TALVEX_DECLARE_EXCEPTION(IO_Exception);
TALVEX_DECLARE_EXCEPTION(NotImplementException);
TALVEX_DECLARE_EXCEPTION(OutOfCapacityException);
TALVEX_DECLARE_EXCEPTION(TimeoutsException);
TALVEX_DECLARE_EXCEPTION(ContainerEmptyException);

#undef TALVEX_DECLARE_EXCEPTION
// NOLINTEND(bugprone-macro-parentheses)

}  // namespace Basics

// Raises one of the family with the raising site filled in.
#define TALVEX_THROW(ExceptionClass, detail) \
    throw ::Basics::ExceptionClass(__FILE__, __func__, __LINE__, (detail))  // NOLINT
