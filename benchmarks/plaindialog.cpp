// What the panel's start is held against: a bare dialog of the panel's size with 80 of the toolkit's own
// widgets, of the same kinds as the panel's, in the default font.

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFrame>
#include <QGroupBox>
#include <QLCDNumber>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QSpinBox>
#include <QTextBrowser>

namespace {

constexpr int dialog_width = 620;
constexpr int dialog_height = 508;
constexpr int columns = 8;
constexpr int cell_width = dialog_width / columns;
constexpr int cell_height = dialog_height / 10;

// Places widgets one after the other in a grid of 8 x 10.
class Grid {
public:
    explicit Grid(QWidget* parent) : parent_(parent) {}

    template <typename Widget>
    void add(int count) {
        for (; count > 0; --count) {
            place(new Widget(parent_));
        }
    }

    template <typename Widget>
    void add_with_text(int count) {
        for (; count > 0; --count) {
            place(new Widget(QStringLiteral("Widget"), parent_));
        }
    }

private:
    void place(QWidget* widget) {
        widget->setGeometry(cell_width * (placed_ % columns), cell_height * (placed_ / columns),
                            cell_width - 4, cell_height - 4);
        ++placed_;
    }

    QWidget* parent_;
    int placed_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QDialog dialog;
    dialog.setFixedSize(dialog_width, dialog_height);
    Grid grid(&dialog);
    grid.add_with_text<QLabel>(46);
    grid.add<QTextBrowser>(5);
    grid.add<QFrame>(10);
    grid.add_with_text<QGroupBox>(1);
    grid.add<QLCDNumber>(1);
    grid.add<QProgressBar>(3);
    grid.add<QScrollBar>(3);
    grid.add_with_text<QPushButton>(4);
    grid.add_with_text<QCheckBox>(2);
    grid.add_with_text<QRadioButton>(3);
    grid.add<QComboBox>(1);
    grid.add<QSpinBox>(1);
    dialog.show();
    return QApplication::exec();
}
