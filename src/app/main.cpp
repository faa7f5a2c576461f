#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::printf("tamvex %s\n", TAMVEX_VERSION);
    return 0;
}
