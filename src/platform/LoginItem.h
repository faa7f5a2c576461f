#pragma once

#include "platform/Error.h"

#include <QString>

namespace tamvex {

/// Whether the application starts with the user's session, and the means to change it.
class LoginItem {
public:
    /// The states a login item can be in; numbered as the settings logic expects.
    enum class Status { notRegistered = 0, enabled = 1, requiresApproval = 2, notFound = 3 };

    virtual ~LoginItem() = default;
    virtual Status status() const = 0;
    /// Makes the application start at login; throws TamvexError with the reason.
    virtual void registerItem() = 0;
    /// Stops it starting at login; throws TamvexError with the reason.
    virtual void unregisterItem() = 0;
};

/// The XDG autostart entry: enabled exactly when the .desktop file is there.
class AutostartLoginItem final : public LoginItem {
public:
    /// `entryPath` is the .desktop file; `executable` is what it starts.
    AutostartLoginItem(QString entryPath, QString executable);
    Status status() const override;
    void registerItem() override;
    void unregisterItem() override;
    /// The text of the entry that registerItem writes.
    QString entryText() const;

private:
    QString m_entryPath;
    QString m_executable;
};

} // namespace tamvex
