#pragma once
// A combo box whose entries are never cut: the list is as wide as its longest entry needs, and an
// entry too long for the box is written smaller. Main thread only.

#include <QComboBox>
#include <QFont>
#include <QSize>

namespace quenda {

class PickerBox final : public QComboBox {
    Q_OBJECT
public:
    using QComboBox::QComboBox;
    /// What its longest Latin entry needs, as far as a form has it: a form sets a field that its
    /// label leaves too little room below the label.
    QSize minimumSizeHint() const override;
    void showPopup() override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int widestEntry() const;

    mutable int m_widest = 0; ///< of m_measured entries in m_measuredFont
    mutable int m_measured = 0;
    mutable QFont m_measuredFont;
};

} // namespace quenda
