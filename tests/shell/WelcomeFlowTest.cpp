#include "shell/welcome/WelcomeFlow.h"
#include "account/AnalyticsService.h"
#include "platform/MicrophoneAccess.h"
#include "shell/SettingsStore.h"
#include "shell/welcome/PermissionsCheck.h"
#include "support/AppFixture.h"

#include <QSignalSpy>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;

namespace {
class FakeMicrophone final : public MicrophoneAccess {
public:
    Status current = Status::noDevice;
    Status status() const override { return current; }
};

// The events tracked while it lives, as "name {key=value, …}".
struct TrackedEvents {
    QSignalSpy spy{&AnalyticsService::shared(), &AnalyticsService::tracked};
    QStringList names() const {
        QStringList out;
        for (const auto& args : spy)
            out << args.at(0).toString();
        return out;
    }
    QVariantMap last() const { return spy.last().at(1).toMap(); }
};
} // namespace

class WelcomeFlowTest : public QObject {
    Q_OBJECT
private slots:
    void advanceWalksTheStepsAndFinishes() {
        AppFixture fx;
        SettingsStore& settings = fx.state->settings();
        WelcomeFlow flow(settings);
        QSignalSpy finished(&flow, &WelcomeFlow::finished);
        TrackedEvents events;

        QVERIFY(!flow.canGoBack());
        flow.advance();
        QCOMPARE(flow.step(), 1);
        QCOMPARE(events.last(), (QVariantMap{{"from_step", 0}, {"to_step", 1}, {"step_name", "hotkey"}}));
        flow.advance();
        QCOMPARE(flow.step(), 2);
        QCOMPARE(events.last().value("step_name").toString(), QString("use_cases"));

        // A use case must be chosen; deselecting disables the button again.
        QVERIFY(!flow.canAdvance());
        flow.advance();
        QCOMPARE(flow.step(), 2);
        QSignalSpy canAdvance(&flow, &WelcomeFlow::canAdvanceChanged);
        flow.toggleUseCase("writing");
        QVERIFY(flow.canAdvance());
        QVERIFY(flow.isUseCaseSelected("writing"));
        flow.toggleUseCase("writing");
        QVERIFY(!flow.canAdvance());
        QVERIFY(canAdvance.size() >= 2);
        flow.toggleUseCase("ai");
        flow.toggleUseCase("docs");
        flow.toggleUseCase("nonsense");
        QCOMPARE(settings.useCases().size(), 2);

        flow.back();
        QCOMPARE(flow.step(), 1);
        QVERIFY(flow.canGoBack());
        for (int i = 0; i < 4; ++i)
            flow.advance(); // login and permissions may be skipped
        QCOMPARE(flow.step(), 5);
        QCOMPARE(flow.advanceTitle(), QString("Готово"));
        const int advancedBefore = int(events.names().count("onboarding_step_advanced"));
        flow.advance();
        QCOMPARE(int(events.names().count("onboarding_step_advanced")), advancedBefore); // none for the last
        QCOMPARE(events.names().last(), QString("onboarding_completed"));
        QCOMPARE(events.last(), (QVariantMap{{"byok_key_entered", false}, {"use_cases_count", 2}}));
        QCOMPARE(finished.size(), 1);
        QVERIFY(settings.onboardingCompleted());
        QVERIFY(settings.useEmbeddedKey());

        QCOMPARE(WelcomeFlow::stepName(4), QString("permissions"));
        QCOMPARE(WelcomeFlow::stepName(7), QString("step_7"));
    }

    void aKeyGivenAtTheStartIsStoredTrimmed() {
        AppFixture fx;
        WelcomeFlow flow(fx.state->settings(), 5, "  sk-or-v1-abc\n");
        TrackedEvents events;
        flow.advance();
        QCOMPARE(fx.state->settings().apiKey(), QString("sk-or-v1-abc"));
        QVERIFY(!fx.state->settings().useEmbeddedKey());
        QCOMPARE(events.last().value("byok_key_entered"), QVariant(true));
    }

    void permissionsStepReadsEverySecondWhileShown() {
        ManualClock clock;
        FakeMicrophone mic;
        FakeAccess input;
        input.trusted = false;
        PermissionsCheck check(clock, mic, input);
        QVERIFY(!check.micGranted().has_value());
        check.appear();
        QCOMPARE(check.micGranted(), std::optional<bool>(false));
        clock.advance(5.0);
        QCOMPARE(input.promptCount(), 0); // no microphone: no prompt chain

        mic.current = MicrophoneAccess::Status::authorized;
        clock.advance(0.99);
        QCOMPARE(check.micGranted(), std::optional<bool>(false));
        clock.advance(0.01);
        QCOMPARE(check.micGranted(), std::optional<bool>(true));
        input.trusted = true;
        clock.advance(1.0);
        QVERIFY(check.accessibilityGranted());

        check.disappear();
        input.trusted = false;
        clock.advance(10.0);
        QVERIFY(check.accessibilityGranted()); // not read after the step went
        QCOMPARE(clock.pendingTimers(), 0);

        // Shown again with the microphone there: input access is asked for 0.5 s later.
        check.appear();
        clock.advance(0.49);
        QCOMPARE(input.promptCount(), 0);
        clock.advance(0.01);
        QCOMPARE(input.promptCount(), 1);
        check.disappear();
    }
};

QTEST_GUILESS_MAIN(WelcomeFlowTest)
#include "WelcomeFlowTest.moc"
