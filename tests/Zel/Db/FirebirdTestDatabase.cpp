#include "TestDatabase.h"

namespace ZelTest {

// Firebird's test database is not part of this build: the suites skip the backend.
std::unique_ptr<TestDatabase> makeFirebirdDatabase() {
    return nullptr;
}

} // namespace ZelTest
