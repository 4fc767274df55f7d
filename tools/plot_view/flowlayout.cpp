#include "tools/plot_view/flowlayout.h"

#include <algorithm>

namespace plot {

FlowLayout::~FlowLayout() = default;

void FlowLayout::addItem(QLayoutItem* item) {
    items_.emplace_back(item);
}

QLayoutItem* FlowLayout::itemAt(int index) const {
    const auto number = static_cast<std::size_t>(index);
    return index >= 0 && number < items_.size() ? items_[number].get() : nullptr;
}

QLayoutItem* FlowLayout::takeAt(int index) {
    if (itemAt(index) == nullptr) {
        return nullptr;
    }
    QLayoutItem* const item = items_[static_cast<std::size_t>(index)].release();
    items_.erase(items_.begin() + index);
    return item;
}

QSize FlowLayout::minimumSize() const {
    QSize size;
    for (const auto& item : items_) {
        size = size.expandedTo(item->minimumSize());
    }
    const QMargins margins = contentsMargins();
    return size + QSize(margins.left() + margins.right(), margins.top() + margins.bottom());
}

void FlowLayout::setGeometry(const QRect& area) {
    QLayout::setGeometry(area);
    place(area, true);
}

// Places the items, or only finds out how high their rows are; returns the height.
int FlowLayout::place(const QRect& area, bool moves) const {
    const QMargins margins = contentsMargins();
    const QRect inner = area.marginsRemoved(margins);
    const int gap = std::max(spacing(), 0);
    QPoint at = inner.topLeft();
    int row_height = 0;
    for (const auto& item : items_) {
        const QSize size = item->sizeHint().boundedTo(QSize(inner.width(), QLAYOUTSIZE_MAX));
        if (at.x() > inner.left() && at.x() + size.width() > inner.left() + inner.width()) {
            at = QPoint(inner.left(), at.y() + row_height + gap);
            row_height = 0;
        }
        if (moves) {
            item->setGeometry(QRect(at, size));
        }
        at.rx() += size.width() + gap;
        row_height = std::max(row_height, size.height());
    }
    return at.y() + row_height - area.top() + margins.bottom();
}

}  // namespace plot
