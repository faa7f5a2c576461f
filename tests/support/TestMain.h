#pragma once

// Several Qt Test classes in one executable, so that the big library is linked once for them.
// `EXE ClassName [Qt Test options]` runs one class; each class is its own CTest test and process,
// so anything read once per process (hosts, locale, environment) is still the class's own.

#include <QObject>

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace tamvex::test {

using TestClassFactory = std::function<std::unique_ptr<QObject>()>;
std::map<std::string, TestClassFactory>& testClasses();

struct TestClassRegistration {
    TestClassRegistration(const char* name, TestClassFactory factory) { testClasses().emplace(name, std::move(factory)); }
};

} // namespace tamvex::test

/// Replaces QTEST_GUILESS_MAIN in a test file that is part of a group executable.
#define TAMVEX_TEST_CLASS(Class)                                                                                       \
    static const tamvex::test::TestClassRegistration Class##Registration(#Class,                                      \
                                                                          [] { return std::make_unique<Class>(); });
