#pragma once

#include <QStringList>
#include <QTextStream>

namespace tamvex {

class ModelDownloader;

/// `tamvex model status|download|verify|delete [MODEL] [--json]`: the local model for a
/// headless user. `args` start after the word "model". Returns 0 on success, 1 on a failure,
/// 2 on a usage error; `download` draws a progress bar on `err`.
int runModelCommand(const QStringList& args, QTextStream& out, QTextStream& err);

/// The same against a given downloader (tests use one under a sandbox).
int runModelCommand(const QStringList& args, QTextStream& out, QTextStream& err, ModelDownloader& downloader);

/// `tamvex transcribe-local FILE [--model PATH]`: the local pipeline on one file; prints the
/// text. `args` start after the word "transcribe-local". Returns 0, 1 on a failure, 2 on misuse.
int runTranscribeLocal(const QStringList& args, QTextStream& out, QTextStream& err);

/// One line of the terminal progress bar: "[#####-----]  42 %  241 из ~574 МБ".
QString modelProgressLine(double progress, qint64 expectedBytes, int width = 30);

} // namespace tamvex
