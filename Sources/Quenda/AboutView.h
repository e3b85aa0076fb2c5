#pragma once
// The content of the about window: everything is read from the program's bundle when it is built.
// Main thread only.

#include <QWidget>

namespace quenda {

class Bundle;
class Workspace;

class AboutView : public QWidget {
    Q_OBJECT
public:
    static constexpr int kWidth = 340;

    AboutView(const Bundle &bundle, Workspace &workspace, QWidget *parent = nullptr);

    /// The short version; "dev" where the bundle has none.
    static QString version(const Bundle &bundle);
    /// The build; an en dash where the bundle has none.
    static QString build(const Bundle &bundle);
};

} // namespace quenda
