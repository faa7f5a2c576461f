#pragma once

#include <QString>
#include <QUrl>

// Compiled-in hosts. A build may replace them with -D definitions; the environment
// (TAMVEX_MAIN_URL, TAMVEX_STT_URL, TAMVEX_OPENROUTER_URL, TAMVEX_YANDEX_OAUTH_URL,
// TAMVEX_MODEL_MIRROR_URL)
// overrides them at run time, so tests and self-hosters point at their own servers. The
// author's Telegram contact of the settings pane is configured the same way
// (TAMVEX_TELEGRAM_CONTACT).
#ifndef TAMVEX_DEFAULT_MAIN_URL
#define TAMVEX_DEFAULT_MAIN_URL "https://api.sorvel.ru"
#endif
#ifndef TAMVEX_DEFAULT_STT_URL
#define TAMVEX_DEFAULT_STT_URL "https://stt.sorvel.ru"
#endif
#ifndef TAMVEX_DEFAULT_OPENROUTER_URL
#define TAMVEX_DEFAULT_OPENROUTER_URL "https://openrouter.ai"
#endif
#ifndef TAMVEX_DEFAULT_YANDEX_OAUTH_URL
#define TAMVEX_DEFAULT_YANDEX_OAUTH_URL "https://oauth.yandex.ru"
#endif
// The public mirror of whisper.cpp's model files, for users whom the main host can't serve.
#ifndef TAMVEX_DEFAULT_MODEL_MIRROR_URL
#define TAMVEX_DEFAULT_MODEL_MIRROR_URL "https://huggingface.co/ggerganov/whisper.cpp/resolve/main"
#endif
#ifndef TAMVEX_DEFAULT_TELEGRAM_CONTACT
#define TAMVEX_DEFAULT_TELEGRAM_CONTACT "@tamvex_support"
#endif

namespace tamvex {

/// The base URLs (scheme, host, optional port, no path) of every service the client talks to.
struct ServiceHosts {
    QUrl main;        ///< the main service: account, analytics, models, speech proxy
    QUrl stt;         ///< the separate speech proxy host ("stt")
    QUrl openRouter;  ///< OpenRouter's public API
    QUrl yandexOAuth; ///< Yandex ID's OAuth host
    QUrl modelMirror; ///< the model files' public mirror; unlike the others it keeps its path

    /// The compiled-in hosts with the environment's overrides, read once per process.
    static const ServiceHosts& configured();
    /// The compiled-in hosts with the overrides found in `environment` lookups.
    static ServiceHosts fromEnvironment();
    /// Every host pointing at one base URL, as tests with a single dev server want.
    static ServiceHosts allAt(const QUrl& base);

    /// The author's Telegram contact ("@name" or a t.me link), read once per process.
    static QString telegramContact();

    /// `base` with `path` appended (path starts with "/").
    static QUrl join(const QUrl& base, const QString& path);
};

} // namespace tamvex
