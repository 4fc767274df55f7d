/// @file
/// A layout that sets widgets in rows as words are set in lines.

#ifndef TOOLS_PLOT_VIEW_FLOWLAYOUT_H
#define TOOLS_PLOT_VIEW_FLOWLAYOUT_H

#include <QLayout>
#include <QLayoutItem>
#include <QList>
#include <memory>
#include <vector>

namespace plot {

/// Places its items side by side, and goes on in the next row where the width ends.
class FlowLayout : public QLayout {
    Q_OBJECT

public:
    using QLayout::QLayout;
    ~FlowLayout() override;

    void addItem(QLayoutItem* item) override;
    int count() const override { return static_cast<int>(items_.size()); }
    QLayoutItem* itemAt(int index) const override;
    QLayoutItem* takeAt(int index) override;
    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return place(QRect(0, 0, width, 0), false); }
    QSize sizeHint() const override { return minimumSize(); }
    QSize minimumSize() const override;
    void setGeometry(const QRect& area) override;

private:
    int place(const QRect& area, bool moves) const;

    std::vector<std::unique_ptr<QLayoutItem>> items_;
};

}  // namespace plot

#endif
