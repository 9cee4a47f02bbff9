// Sets the environment a test program needs (plug-in search path, headless Qt, folders) before
// any test runs. The variables come from the build as "NAME=value|NAME=value".

#include <cstdlib>
#include <sstream>
#include <string>

namespace {

struct TestEnvironment {
  TestEnvironment() {
    std::stringstream list(PELMA_TEST_ENVIRONMENT);
    std::string entry;
    while (std::getline(list, entry, '|')) {
      const auto equals = entry.find('=');
      if (equals != std::string::npos) {
        setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
      }
    }
  }
} testEnvironment;

}  // namespace
