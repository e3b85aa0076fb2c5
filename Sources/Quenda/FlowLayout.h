#pragma once
// A line of buttons that continues on the next line where the window is too narrow for them all,
// with large letters for instance. Owned by the widget it lies on. Main thread only.

#include <QLayout>

#include <memory>
#include <vector>

namespace quenda {

class FlowLayout : public QLayout {
public:
    /// Each line ends at the trailing edge where `trailing` is set, else it begins at the leading.
    explicit FlowLayout(QWidget *parent, bool trailing);
    ~FlowLayout() override;

    void addItem(QLayoutItem *item) override;
    int count() const override { return int(m_items.size()); }
    QLayoutItem *itemAt(int index) const override;
    QLayoutItem *takeAt(int index) override;
    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSize() const override;
    void setGeometry(const QRect &rect) override;

private:
    /// Places the items, or only measures; the height used.
    int arrange(const QRect &rect, bool place) const;

    bool m_trailing;
    std::vector<std::unique_ptr<QLayoutItem>> m_items;
};

} // namespace quenda
