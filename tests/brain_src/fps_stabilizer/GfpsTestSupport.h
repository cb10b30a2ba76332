#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "talvex/basics/Exceptions.h"

namespace TalvexTest {

// "Function:Detail" of the InvalidArgumentException the action raises, or what happened instead.
inline std::string RefusalOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Basics::InvalidArgumentException& e) {
        const std::string text = e.what(), function = "\t Function: ", detail = "\n\t Detail: ";
        const auto begin = text.find(function) + function.size();
        return text.substr(begin, text.find("\n\t Line: ") - begin) + ":" +
               text.substr(text.find(detail) + detail.size());
    } catch (const std::invalid_argument&) {
        return "<std::invalid_argument>";
    }
    return "<no exception>";
}

}  // namespace TalvexTest
