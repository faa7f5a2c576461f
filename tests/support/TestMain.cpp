#include "support/TestMain.h"

#include <QApplication>
#include <QTest>

#include <cstdio>
#include <memory>

namespace tamvex::test {
std::map<std::string, TestClass>& testClasses() {
    static std::map<std::string, TestClass> classes;
    return classes;
}
} // namespace tamvex::test

int main(int argc, char** argv) {
    const auto& classes = tamvex::test::testClasses();
    const auto found = argc > 1 ? classes.find(argv[1]) : classes.end();
    if (found == classes.end()) {
        std::fprintf(stderr, "usage: %s CLASS [Qt Test options]; classes:", argv[0]);
        for (const auto& [name, test] : classes)
            std::fprintf(stderr, " %s", name.c_str());
        std::fprintf(stderr, "\n");
        return 2;
    }
    // The class name is ours, not an option of Qt Test's.
    for (int i = 1; i + 1 < argc; ++i)
        argv[i] = argv[i + 1];
    --argc;
    const auto app = found->second.gui ? std::make_unique<QApplication>(argc, argv)
                                       : std::make_unique<QCoreApplication>(argc, argv);
    const auto test = found->second.make();
    return QTest::qExec(test.get(), argc, argv);
}
