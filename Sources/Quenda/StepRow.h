#pragma once
// One step of the welcome window: its number or check mark, its title and, while it is not done,
// what to do. Main thread only.

#include <QWidget>

class QHBoxLayout;
class QLabel;

namespace quenda {

class StepRow : public QWidget {
    Q_OBJECT
public:
    StepRow(int number, const QString &title, const QString &detail, QWidget *parent = nullptr);

    void addAction(QWidget *action);
    void setDone(bool done);
    bool isDone() const { return m_done; }

private:
    void showMark();

    int m_number;
    QString m_title;
    bool m_done = false;
    QLabel *m_mark = nullptr;
    QWidget *m_actions = nullptr;
    QHBoxLayout *m_actionLine = nullptr;
};

} // namespace quenda
