#include "support/TestSupport.h"

#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QMutex>

namespace tamvex::test {

namespace {
QMutex gMutex;
QStringList gLines;
int gCaptures = 0;
QtMessageHandler gPrevious = nullptr;

void handler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (context.category && QString::fromLatin1(context.category) == QLatin1String(lcTamvex().categoryName())) {
        QMutexLocker lock(&gMutex);
        gLines.append((type == QtCriticalMsg || type == QtFatalMsg ? "error: " : "info: ") + message);
    }
    if (gPrevious)
        gPrevious(type, context, message);
}
} // namespace

LogCapture::LogCapture() {
    QMutexLocker lock(&gMutex);
    if (gCaptures++ == 0) {
        gLines.clear();
        gPrevious = qInstallMessageHandler(handler);
    }
}

LogCapture::~LogCapture() {
    QMutexLocker lock(&gMutex);
    if (--gCaptures == 0)
        qInstallMessageHandler(gPrevious);
}

QStringList LogCapture::lines() const {
    QMutexLocker lock(&gMutex);
    return gLines;
}

bool LogCapture::has(const QString& line) const {
    for (const QString& l : lines())
        if (l.mid(l.indexOf(": ") + 2) == line)
            return true;
    return false;
}

bool LogCapture::hasPrefix(const QString& prefix) const {
    for (const QString& l : lines())
        if (l.mid(l.indexOf(": ") + 2).startsWith(prefix))
            return true;
    return false;
}

void LogCapture::clear() {
    QMutexLocker lock(&gMutex);
    gLines.clear();
}

void RecordingSounds::play(const QString& name, float volume) {
    played.append(name + "@" + QString::number(double(volume)));
}

TestEnv::TestEnv() : paths(Paths::under(root.path())) {
    QDir().mkpath(paths.tempDir);
    reopenDefaults();
}

void TestEnv::reopenDefaults() {
    defaults.reset();
    defaults = std::make_unique<Defaults>(paths.settingsFile());
}

void syncWait(QCoro::Task<void>&& task, int timeoutMs) {
    auto wrapped = [](QCoro::Task<void> inner) -> QCoro::Task<bool> {
        co_await std::move(inner);
        co_return true;
    };
    syncWait<bool>(wrapped(std::move(task)), timeoutMs);
}

bool spinUntil(const std::function<bool()>& until, int ms) {
    QDeadlineTimer deadline(ms);
    while (!until()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
    }
    return true;
}

QByteArray fileBytes(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& data) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

CommandOutput runProcess(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                         const QByteArray& input, int timeoutMs) {
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, args);
    if (!input.isNull())
        process.write(input);
    process.closeWriteChannel();
    if (!spinUntil([&] { return process.state() == QProcess::NotRunning; }, timeoutMs)) {
        process.kill();
        process.waitForFinished(5000);
        return {-3, {}, program + " did not finish"};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

QString testData(const QString& name) {
    const QString path = QStringLiteral(TAMVEX_TESTDATA_DIR) + "/" + name;
    return QFile::exists(path) ? path : QString();
}

} // namespace tamvex::test
