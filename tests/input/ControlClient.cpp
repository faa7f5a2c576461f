// A second process for the D-Bus tests: `ctl ARGS` runs the ctl command, `forward ARGS`
// tries the single-instance hand-over; the exit code says what happened.
#include "cli/CtlCommand.h"
#include "desktop/ControlService.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    const QString mode = args.value(0);
    args = args.mid(1);
    QTextStream out(stdout);
    QTextStream err(stderr);
    if (mode == "ctl")
        return tamvex::runCtlCommand(args, out, err);
    if (mode == "forward")
        return tamvex::forwardToRunningInstance(args) ? 0 : 3;
    return 64;
}
