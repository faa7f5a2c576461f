#pragma once

#include <QStringList>

namespace tamvex::test {

/// Sets the keyboard layouts of $DISPLAY with setxkbmap's `arguments`, then locks `group` as
/// a layout switch does. Gives the group locked afterwards, or -1 when either step failed.
int useKeyboardLayout(const QStringList& arguments, int group);

} // namespace tamvex::test
