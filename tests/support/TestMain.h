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

struct TestClass {
    std::function<std::unique_ptr<QObject>()> make;
    bool gui = false; ///< runs under a QApplication (windows, QML), as QTEST_MAIN would
};
std::map<std::string, TestClass>& testClasses();

struct TestClassRegistration {
    TestClassRegistration(const char* name, TestClass test) { testClasses().emplace(name, std::move(test)); }
};

} // namespace tamvex::test

/// Replaces QTEST_GUILESS_MAIN in a test file that is part of a group executable.
#define TAMVEX_TEST_CLASS(Class)                                                                                       \
    static const tamvex::test::TestClassRegistration Class##Registration(                                             \
        #Class, {[] { return std::make_unique<Class>(); }, false});
/// Replaces QTEST_MAIN: the class runs under a QApplication.
#define TAMVEX_GUI_TEST_CLASS(Class)                                                                                   \
    static const tamvex::test::TestClassRegistration Class##Registration(                                             \
        #Class, {[] { return std::make_unique<Class>(); }, true});
