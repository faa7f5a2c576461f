pragma ComponentBehavior: Bound
import QtQuick
import Tamvex

StepPage {
    id: step
    required property WelcomeFlow flow
    title: "Для чего будешь использовать?"
    text: "Выбери всё что подходит — это поможет нам лучше тебя понимать."
    Repeater {
        model: [
            { raw: "ai", symbol: "brain.head.profile", title: "AI / нейросети", subtitle: "ChatGPT, Claude, Cursor" },
            { raw: "writing", symbol: "doc.text", title: "Тексты и статьи", subtitle: "посты, заметки, длинные тексты" },
            { raw: "messengers", symbol: "message", title: "Мессенджеры", subtitle: "Telegram, Slack, iMessage" },
            { raw: "docs", symbol: "briefcase", title: "Рабочая документация", subtitle: "PR-комменты, Jira, ТЗ" }
        ]
        UseCaseTile {
            required property var modelData
            width: step.width
            symbol: modelData.symbol
            title: modelData.title
            subtitle: modelData.subtitle
            selected: step.flow.selectedUseCases.indexOf(modelData.raw) >= 0 // qmllint disable
            onTapped: step.flow.toggleUseCase(modelData.raw)
        }
    }
}
