#pragma once
// A text with one link that opens by click, by Return and by the space bar, and is one stop of the
// tab key: QLabel's own links are two, the label and then what is in it. Main thread only.

#include <QLabel>
#include <QString>

namespace quenda {

class LinkLabel final : public QLabel {
    Q_OBJECT
public:
    /// `text`: rich, with one link to `target`.
    LinkLabel(const QString &text, QString target, QWidget *parent = nullptr);

    /// As a click on the link does: emits linkActivated.
    void follow();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool focusNextPrevChild(bool next) override;

private:
    QString m_target;
};

} // namespace quenda
