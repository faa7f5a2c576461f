#pragma once

#include <QString>

#include <exception>
#include <string>

namespace tamvex {

/// Base of every typed error of the system: carries the Russian text the user sees.
class TamvexError : public std::exception {
public:
    explicit TamvexError(QString description)
        : m_description(std::move(description)), m_utf8(m_description.toStdString()) {}
    /// The text shown to the user.
    const QString& description() const noexcept { return m_description; }
    const char* what() const noexcept override { return m_utf8.c_str(); }

private:
    QString m_description;
    std::string m_utf8;
};

/// The user-facing text of any caught exception.
inline QString describeError(const std::exception& e) {
    if (auto* typed = dynamic_cast<const TamvexError*>(&e))
        return typed->description();
    return QString::fromUtf8(e.what());
}

} // namespace tamvex
