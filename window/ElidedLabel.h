#ifndef ELIDEDLABEL_H
#define ELIDEDLABEL_H

#include <QLabel>

/// Plain text whose lines end in "…" where there is no room for all of them. It takes the width
/// that others leave, and begins at the side where the window's layout begins, in whichever
/// direction the text itself is read.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;
};

#endif
