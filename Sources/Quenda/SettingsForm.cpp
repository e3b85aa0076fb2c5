#include "Quenda/SettingsForm.h"

#include "Quenda/ConfigStore.h"
#include "Quenda/Note.h"
#include "Quenda/PickerBox.h"
#include "Quenda/Symbols.h"
#include "Quenda/WrappingCheckBox.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QFormLayout>
#include <QFrame>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <utility>

namespace quenda {

namespace {

constexpr int kWidestUnbrokenLabel = 200; // beside a control; a longer one may take two lines
constexpr int kWidestLabel = 400;         // above a control

// The card stands out from the window a little, in light and dark alike.
class Card : public QFrame {
public:
    explicit Card(QWidget *parent) : QFrame(parent) {
        setAutoFillBackground(true);
        setBackgroundRole(QPalette::AlternateBase);
        setFrameShape(QFrame::StyledPanel);
    }
};

} // namespace

Qt::Alignment sideOf(Qt::Alignment side) {
    return QStyle::visualAlignment(QGuiApplication::layoutDirection(), side) | Qt::AlignAbsolute;
}

QLabel *makeSymbol(const QString &name, const QColor &color, const QString &accessibleName,
                   QWidget *parent) {
    auto *label = new QLabel(parent);
    const int size = label->fontMetrics().height();
    label->setPixmap(symbolIcon(name, color).pixmap(QSize(size, size), label->devicePixelRatioF()));
    label->setAccessibleName(accessibleName);
    label->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    return label;
}

SettingsSection::SettingsSection(const QString &title, ConfigStore &store, QWidget *parent)
    : QWidget(parent),
      m_store(store) {
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(6);
    auto *header = new QLabel(title, this);
    QFont font = header->font();
    font.setBold(true);
    header->setFont(font);
    header->setAlignment(sideOf(Qt::AlignLeading | Qt::AlignVCenter));
    column->addWidget(header);
    auto *card = new Card(this);
    m_form = new QFormLayout(card);
    m_form->setContentsMargins(12, 10, 12, 10);
    m_form->setHorizontalSpacing(12);
    m_form->setVerticalSpacing(9);
    m_form->setRowWrapPolicy(QFormLayout::WrapLongRows);
    m_form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_form->setLabelAlignment(Qt::AlignLeading | Qt::AlignVCenter);
    column->addWidget(card);
    setAccessibleName(title);
}

bool SettingsSection::eventFilter(QObject *watched, QEvent *event) {
    const auto *control = qobject_cast<QWidget *>(watched);
    if (event->type() == QEvent::Wheel && control && !control->hasFocus()) {
        event->ignore();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void SettingsSection::refresh() {
    const Config config = m_store.config();
    for (const auto &refresher : m_refreshers)
        refresher(config);
}

void SettingsSection::onRefresh(std::function<void(const Config &)> refresher) {
    m_refreshers.push_back(std::move(refresher));
}

void SettingsSection::addRow(const QString &label, QWidget *control) {
    if (control->accessibleName().isEmpty())
        control->setAccessibleName(label);
    // A label that belongs to a control would take an ampersand for the mark of an access key.
    auto *name = new QLabel(QString(label).replace(QLatin1Char('&'), QLatin1String("&&")));
    name->setBuddy(control);
    name->setWordWrap(true);
    name->setMinimumWidth(
        std::min(name->fontMetrics().horizontalAdvance(label) + 1, kWidestUnbrokenLabel));
    m_labels.push_back(name);
    m_form->addRow(name, control);
    name->setAlignment(sideOf(Qt::AlignLeading | Qt::AlignVCenter));
}

void SettingsSection::alignLabels(const std::vector<SettingsSection *> &sections) {
    int widest = 0;
    for (const SettingsSection *section : sections) {
        for (const QLabel *label : section->m_labels)
            widest = std::max(widest, label->minimumWidth());
    }
    for (const SettingsSection *section : sections) {
        if (widest >= kWidestUnbrokenLabel) {
            section->m_form->setRowWrapPolicy(QFormLayout::WrapAllRows);
            for (QLabel *label : section->m_labels)
                label->setMinimumWidth(std::min(label->fontMetrics().horizontalAdvance(
                                                    label->text().replace(u"&&"_qs, u"&"_qs)) +
                                                    1,
                                                kWidestLabel));
            continue;
        }
        for (QLabel *label : section->m_labels)
            label->setMinimumWidth(widest);
    }
}

void SettingsSection::addWide(QWidget *widget) {
    m_form->addRow(widget);
}

QLabel *SettingsSection::addNote(const QString &text) {
    QLabel *note = makeNote(text, this);
    m_form->addRow(note);
    return note;
}

void SettingsSection::setRowVisible(QWidget *control, bool visible) {
    m_form->setRowVisible(control, visible);
}

QComboBox *SettingsSection::addPicker(const QString &label, const std::vector<Choice> &choices,
                                      std::function<QString(const Config &)> read,
                                      std::function<void(Config &, const QString &)> write) {
    auto *picker = new PickerBox;
    picker->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    picker->setMinimumContentsLength(14);
    for (const Choice &choice : choices)
        picker->addItem(choice.title, choice.identity);
    picker->setFocusPolicy(Qt::StrongFocus);
    picker->installEventFilter(this);
    connect(picker, &QComboBox::activated, this, [this, picker, write = std::move(write)] {
        const QString identity = picker->currentData().toString();
        m_store.update([&](Config &config) { write(config, identity); });
    });
    onRefresh([picker, read = std::move(read)](const Config &config) {
        const int row = picker->findData(read(config));
        if (row != picker->currentIndex()) {
            const QSignalBlocker quiet(picker);
            picker->setCurrentIndex(row);
        }
    });
    addRow(label, picker);
    return picker;
}

QCheckBox *SettingsSection::addToggle(const QString &label, bool Config::*field) {
    auto *toggle = new WrappingCheckBox(label);
    connect(toggle, &QCheckBox::toggled, this, [this, field](bool on) {
        m_store.update([&](Config &config) { config.*field = on; });
    });
    onRefresh([toggle, field](const Config &config) {
        const QSignalBlocker quiet(toggle);
        toggle->setChecked(config.*field);
    });
    addWide(toggle);
    return toggle;
}

QLineEdit *SettingsSection::addText(const QString &label,
                                    std::function<QString(const Config &)> read,
                                    std::function<void(Config &, const QString &)> write) {
    auto *edit = new QLineEdit;
    connect(edit, &QLineEdit::textEdited, this,
            [this, write = std::move(write)](const QString &text) {
                m_store.update([&](Config &config) { write(config, text); });
            });
    onRefresh([edit, read = std::move(read)](const Config &config) {
        const QString text = read(config);
        if (text != edit->text())
            edit->setText(text);
    });
    addRow(label, edit);
    return edit;
}

void SettingsSection::addSlider(const QString &label, double Config::*field, Range range,
                                int valueWidth, std::function<QString(double)> format) {
    auto *row = new QWidget;
    auto *line = new QHBoxLayout(row);
    line->setContentsMargins(0, 0, 0, 0);
    auto *slider = new QSlider(Qt::Horizontal);
    slider->setRange(0, int(std::lround((range.to - range.from) / range.step)));
    slider->setPageStep(2);
    slider->setAccessibleName(label);
    slider->setFocusPolicy(Qt::StrongFocus);
    slider->installEventFilter(this);
    auto *value = new QLabel;
    const int needed = value->fontMetrics().horizontalAdvance(format(range.to)) + 4;
    value->setFixedWidth(std::max(valueWidth, needed));
    value->setAlignment(sideOf(Qt::AlignTrailing | Qt::AlignVCenter));
    line->addWidget(slider, 1);
    line->addWidget(value);
    row->setFocusProxy(slider);
    connect(slider, &QSlider::valueChanged, this, [this, field, range](int step) {
        // Rounded so that the file says 0.3 where adding up steps would say 0.30000000000000004.
        const double exact = range.from + step * range.step;
        const double rounded = std::round(exact * 100.0) / 100.0;
        m_store.update([&](Config &config) { config.*field = rounded; });
    });
    onRefresh([slider, value, field, range, format = std::move(format)](const Config &config) {
        const double clamped = std::clamp(config.*field, range.from, range.to);
        const QSignalBlocker quiet(slider); // a value between two steps is shown, not rewritten
        slider->setValue(int(std::lround((clamped - range.from) / range.step)));
        value->setText(format(config.*field));
    });
    addRow(label, row);
}

} // namespace quenda
