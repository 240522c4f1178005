#include "Platform/URLSession.h"

#include "Platform/ASCII.h"

#include <algorithm>
#include <utility>

namespace Platform {

bool HeaderNameLess::operator()(std::string_view left, std::string_view right) const
{
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char a, char b) { return lowerCaseASCII(a) < lowerCaseASCII(b); });
}

void URLRequest::setValue(std::string value, std::string_view headerField)
{
    headerFields.insert_or_assign(std::string(headerField), std::move(value));
}

Task<URLResponse> URLSession::data(URLRequest request)
{
    Suspension<Outcome> transfer([&](auto continuation) {
        start(std::move(request),
              [continuation](Outcome outcome) { continuation.resume(std::move(outcome)); });
    });
    Outcome outcome = co_await transfer;
    if (const auto* error = std::get_if<URLError>(&outcome))
        throw *error;
    co_return std::get<URLResponse>(std::move(outcome));
}

} // namespace Platform
