#pragma once

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace TalvexSim {

// Walks a command line word by word for the program's three command lines; every message
// starts with `prefix` ("sweep: ") and is thrown as an `Error`.
template <typename Error>
class ArgumentReader {
  public:
    ArgumentReader(const std::vector<std::string>& arguments, std::string prefix)
        : arguments(arguments), prefix(std::move(prefix)) {}

    // Moves to the next word; false after the last.
    bool Next() { return ++at < arguments.size(); }
    const std::string& Word() const { return arguments[at]; }
    bool IsOption() const { return !Word().empty() && Word()[0] == '-'; }

    // The word after the current option, taken.
    const std::string& Value() {
        if (at + 1 >= arguments.size()) Fail(Word() + " needs a value");
        return arguments[++at];
    }
    // The word after the current one, not taken; null after the last.
    const std::string* Peek() const {
        return at + 1 < arguments.size() ? &arguments[at + 1] : nullptr;
    }
    // The value as a number above `least` (or at least `least`, when `orEqual`).
    double Number(double least, bool orEqual, const char* what) {
        const std::string& option = Word();
        const std::string& text = Value();
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        const bool inRange = orEqual ? value >= least : value > least;
        if (text.empty() || *end != '\0' || !inRange) {
            Fail(option + " takes " + what + ", not '" + text + "'");
        }
        return value;
    }
    [[noreturn]] void Fail(const std::string& message) const { throw Error(prefix + message); }

  private:
    const std::vector<std::string>& arguments;
    std::string prefix;
    size_t at = static_cast<size_t>(-1);
};

}  // namespace TalvexSim
