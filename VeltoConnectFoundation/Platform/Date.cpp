#include <VeltoConnectFoundation/Platform/Value.h>

namespace velto {

namespace {

constexpr double referenceInUnixSeconds = 978307200;

}  // namespace

Date Date::fromUnixSeconds(double seconds) {
    return {seconds - referenceInUnixSeconds};
}

double Date::unixSeconds() const {
    return secondsSinceReference + referenceInUnixSeconds;
}

}  // namespace velto
