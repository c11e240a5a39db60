// The list of all histories.
#include "tools/crash/history.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {

std::vector<History> histories() { return store_histories(); }

}  // namespace kelo::crash
