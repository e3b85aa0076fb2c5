#include "Quenda/FlowLayout.h"

#include <QStyle>
#include <QWidget>

#include <algorithm>

namespace quenda {

namespace {
constexpr int kGap = 6;
}

FlowLayout::FlowLayout(QWidget *parent, bool trailing) : QLayout(parent), m_trailing(trailing) {
    setContentsMargins(0, 0, 0, 0);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    parent->setSizePolicy(policy);
}

FlowLayout::~FlowLayout() = default;

void FlowLayout::addItem(QLayoutItem *item) {
    m_items.emplace_back(item);
}

QLayoutItem *FlowLayout::itemAt(int index) const {
    return index >= 0 && index < count() ? m_items[std::size_t(index)].get() : nullptr;
}

QLayoutItem *FlowLayout::takeAt(int index) {
    if (index < 0 || index >= count())
        return nullptr;
    QLayoutItem *taken = m_items[std::size_t(index)].release();
    m_items.erase(m_items.begin() + index);
    return taken;
}

int FlowLayout::heightForWidth(int width) const {
    return arrange(QRect(0, 0, width, 0), false);
}

QSize FlowLayout::sizeHint() const {
    int width = 0;
    int height = 0;
    for (const auto &item : m_items) {
        if (item->isEmpty())
            continue;
        width += item->sizeHint().width() + (width > 0 ? kGap : 0);
        height = std::max(height, item->sizeHint().height());
    }
    return {width, height};
}

QSize FlowLayout::minimumSize() const {
    QSize least;
    for (const auto &item : m_items) {
        if (!item->isEmpty())
            least = least.expandedTo(item->sizeHint());
    }
    return least;
}

void FlowLayout::setGeometry(const QRect &rect) {
    QLayout::setGeometry(rect);
    arrange(rect, true);
}

int FlowLayout::arrange(const QRect &rect, bool place) const {
    const Qt::LayoutDirection direction =
        parentWidget() ? parentWidget()->layoutDirection() : Qt::LeftToRight;
    int top = rect.top();
    for (std::size_t next = 0; next < m_items.size();) {
        std::vector<QLayoutItem *> line;
        QSize used(0, 0);
        for (; next < m_items.size(); ++next) {
            QLayoutItem *item = m_items[next].get();
            if (item->isEmpty())
                continue;
            const QSize size = item->sizeHint();
            const int grown = used.width() + size.width() + (line.empty() ? 0 : kGap);
            if (!line.empty() && grown > rect.width())
                break;
            line.push_back(item);
            used = QSize(grown, std::max(used.height(), size.height()));
        }
        if (line.empty())
            break;
        if (top > rect.top())
            top += kGap;
        int left = rect.left() + (m_trailing ? std::max(0, rect.width() - used.width()) : 0);
        for (QLayoutItem *item : line) {
            const QSize size = item->sizeHint();
            if (place) {
                const QRect spot(left, top + (used.height() - size.height()) / 2, size.width(),
                                 size.height());
                item->setGeometry(QStyle::visualRect(direction, rect, spot));
            }
            left += size.width() + kGap;
        }
        top += used.height();
    }
    return top - rect.top();
}

} // namespace quenda
