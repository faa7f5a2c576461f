#include "support/TestMain.h"
#include "history/TextClassifier.h"
#include "services/ServiceFixture.h"
#include "support/ChatAnswers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace tamvex;
using namespace tamvex::test;
using devserver::Script;

Q_DECLARE_METATYPE(tamvex::TextCategory)

namespace {
const QString kEight = "раз два три четыре пять шесть семь восемь";
} // namespace

class TextClassifierTest : public QObject {
    Q_OBJECT
private slots:
    void answersBecomeCategories_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("reply");
        QTest::addColumn<TextCategory>("category");
        QTest::addColumn<bool>("asked");
        QTest::newRow("7 words: no request") << "раз два три четыре пять шесть семь" << 200 << "docs"
                                            << TextCategory::other << false;
        QTest::newRow("8 words, capitalised, a stop and a line break") << kEight << 200 << " Docs.\n"
                                                                       << TextCategory::docs << true;
        QTest::newRow("two words") << kEight << 200 << "docs notes" << TextCategory::other << true;
        QTest::newRow("service error") << kEight << 500 << "down" << TextCategory::other << true;
    }

    void answersBecomeCategories() {
        QFETCH(QString, text);
        QFETCH(int, status);
        QFETCH(QString, reply);
        QFETCH(TextCategory, category);
        QFETCH(bool, asked);
        SelectorEnv env;
        env.host.server.script(kProxyPath, Script{status, status == 200 ? chatAnswer(reply, false) : reply.toUtf8()});
        LogCapture log;
        TextClassifier classifier(std::make_shared<OpenRouterService>(OpenRouterService::Mode::proxy("t"), env.selector),
                                  "google/gemini-2.5-flash-lite");
        QCOMPARE(syncWait(classifier.classify(text)), category);
        const auto sent = env.host.server.received(kProxyPath);
        QCOMPARE(sent.size(), asked ? 1 : 0);
        if (asked) {
            const QJsonObject body = QJsonDocument::fromJson(sent[0].body).object();
            QCOMPARE(body.value("temperature").toDouble(), 0.0);
            const QJsonArray messages = body.value("messages").toArray();
            QCOMPARE(messages[0]["content"][0]["text"].toString(), TextClassifier::prompt);
            QCOMPARE(messages[1]["content"][0]["text"].toString(), text);
        }
        QCOMPARE(log.hasPrefix("classify failed: "), status != 200);
    }
};

TAMVEX_TEST_CLASS(TextClassifierTest)
#include "TextClassifierTest.moc"
