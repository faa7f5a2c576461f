#pragma once

#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>

class QQmlEngine;
class QQuickWindow;
class QScreen;

namespace tamvex {

class AppState;
class LevelReader;

/// Owns the floating HUD and feeds it: the state, the level while recording, the slow flag,
/// the pending nudge and the week's word count. Keeps it at the bottom centre of the
/// primary screen as the screens change.
class RecordingHUDController : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The application makes the one HUD controller")
    Q_PROPERTY(QString stateKind READ stateKind NOTIFY stateChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY stateChanged)
    Q_PROPERTY(float level READ level NOTIFY levelChanged)
    Q_PROPERTY(bool slowProcessing READ slowProcessing NOTIFY slowProcessingChanged)
    Q_PROPERTY(bool hasNudge READ hasNudge NOTIFY nudgeChanged)
    Q_PROPERTY(QString nudgeIcon READ nudgeIcon NOTIFY nudgeChanged)
    Q_PROPERTY(QString nudgeTitle READ nudgeTitle NOTIFY nudgeChanged)
    Q_PROPERTY(QString nudgeBody READ nudgeBody NOTIFY nudgeChanged)
    Q_PROPERTY(QString nudgeHotkey READ nudgeHotkey NOTIFY nudgeChanged)
    Q_PROPERTY(int wordsLastWeek READ wordsLastWeek NOTIFY wordsLastWeekChanged)
public:
    /// `levelReader` may be null (no recorder): the level then stays where it is.
    RecordingHUDController(AppState& appState, LevelReader* levelReader, std::function<void()> onMenuTap,
                           QObject* parent = nullptr);
    ~RecordingHUDController() override;

    /// Builds the panel and shows it; it stays for the whole run.
    void show();
    /// The panel, null before show().
    QQuickWindow* window() const;
    /// Moves the panel to the bottom centre of the primary screen's available area.
    void position();

    QString stateKind() const;
    QString errorMessage() const;
    float level() const { return m_level; }
    bool slowProcessing() const;
    bool hasNudge() const;
    QString nudgeIcon() const;
    QString nudgeTitle() const;
    QString nudgeBody() const;
    QString nudgeHotkey() const;
    int wordsLastWeek() const { return m_wordsLastWeek; }

    /// A tap on the idle handle.
    Q_INVOKABLE void menuTap();
    /// Shows a level in dBFS as the level timer does, unsmoothed.
    void setLevel(float level);

signals:
    void stateChanged();
    void levelChanged();
    void slowProcessingChanged();
    void nudgeChanged();
    void wordsLastWeekChanged();

private:
    void refreshWordCount();
    void followPrimaryScreen();

    AppState& m_appState;
    QPointer<LevelReader> m_levelReader;
    std::function<void()> m_onMenuTap;
    float m_level = -60.0f;
    int m_wordsLastWeek = 0;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QQuickWindow> m_window;
    QPointer<QScreen> m_screen;
    QList<QMetaObject::Connection> m_screenConnections;
};

} // namespace tamvex
