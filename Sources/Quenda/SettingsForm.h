#pragma once
// The building blocks of the settings window: a titled card with a form in it, and controls that
// read one field of the settings and write it back. Main thread only.

#include "Quenda/Config.h"

#include <QString>
#include <QWidget>

#include <functional>
#include <vector>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QVBoxLayout;

namespace quenda {

class ConfigStore;

/// The alignment as the window is laid out, whichever way a label's own letters run: in a
/// right-to-left window a device's Latin name stands where the other values stand.
Qt::Alignment sideOf(Qt::Alignment side);
/// A symbol at the text's height, in a given colour, as a label.
QLabel *makeSymbol(const QString &name, const QColor &color, const QString &accessibleName,
                   QWidget *parent);

/// One section: its header above a card that holds the rows.
class SettingsSection : public QWidget {
    Q_OBJECT
public:
    SettingsSection(const QString &title, ConfigStore &store, QWidget *parent = nullptr);

    /// Shows what the settings hold now in every bound control. A control that shows it already is
    /// not touched, so that typing, selection and input method stay.
    void refresh();

    /// Gives the labels of all sections one width, so that the controls stand in one column; where
    /// letters are so large that labels would take two lines, each control stands below its label.
    static void alignLabels(const std::vector<SettingsSection *> &sections);

protected:
    /// Lets the wheel scroll the window rather than change a control that only lies under it.
    bool eventFilter(QObject *watched, QEvent *event) override;

    ConfigStore &store() { return m_store; }

    /// Adds a row; `label` is also the control's accessible name.
    void addRow(const QString &label, QWidget *control);
    void addWide(QWidget *widget);
    QLabel *addNote(const QString &text);
    /// Shows or hides a row added by addRow or addWide.
    void setRowVisible(QWidget *control, bool visible);

    struct Choice {
        QString title;
        QString identity;
    };
    QComboBox *addPicker(const QString &label, const std::vector<Choice> &choices,
                         std::function<QString(const Config &)> read,
                         std::function<void(Config &, const QString &)> write);
    QCheckBox *addToggle(const QString &label, bool Config::*field);
    QLineEdit *addText(const QString &label, std::function<QString(const Config &)> read,
                       std::function<void(Config &, const QString &)> write);

    struct Range {
        double from = 0;
        double to = 1;
        double step = 1;
    };
    /// A slider with its value beside it, in a label at least `valueWidth` wide.
    void addSlider(const QString &label, double Config::*field, Range range, int valueWidth,
                   std::function<QString(double)> format);

    /// Called with the present settings at each refresh.
    void onRefresh(std::function<void(const Config &)> refresher);

private:
    ConfigStore &m_store;
    QFormLayout *m_form = nullptr;
    std::vector<QLabel *> m_labels;
    std::vector<std::function<void(const Config &)>> m_refreshers;
};

} // namespace quenda
