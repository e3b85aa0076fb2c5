#pragma once
// A check box whose text continues on further lines where one is too narrow. Owned by its parent
// widget. Main thread only.

#include <QCheckBox>

namespace quenda {

class WrappingCheckBox : public QCheckBox {
    Q_OBJECT
public:
    explicit WrappingCheckBox(const QString &text, QWidget *parent = nullptr);

    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    bool hitButton(const QPoint &position) const override { return rect().contains(position); }

private:
    int textStart() const;
};

} // namespace quenda
