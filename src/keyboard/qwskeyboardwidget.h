// The floating soft keyboard of the shell: a frameless top-level that never takes the focus
// and turns taps into key events (English) or composed Chinese text (pinyin). The title bar
// owns it, shows and hides it, and forwards both signals into the window server.
#pragma once

#include <QPoint>
#include <QString>
#include <QWidget>

class QButtonGroup;
class QKeyEvent;
class QPushButton;
class QStyle;

namespace Ui {
class QwsKeyBoardWidget;
}

class QwsKeyBoardWidget : public QWidget
{
    Q_OBJECT

public:
    explicit QwsKeyBoardWidget(QWidget *parent = nullptr);
    ~QwsKeyBoardWidget() override;

signals:
    // Committed text: candidates, raw pinyin letters, full-width punctuation.
    void newString(QString);
    // A press or release for the focused client. Allocated per emission; the receiver frees it.
    void newKeyEvent(QKeyEvent *);

public slots:
    void changeMethod(int method);
    void changeMethod();
    void on_btnPgDn_clicked();
    void on_btnPgUp_clicked();
    void on_btnFn_clicked();
    void onKeyPressed(int id);
    void onKeyReleased(int id);
    void onHzClicked(int id);
    void clearIME();
    void reloadIME(QString text);
    void reloadIME();
    void removeFirstCharFromIME();
    void updateUI();
    int findValidPY(QString py);
    void updateReadyHzList();
    void emitKeyEvent(int key, QString text, bool pressed);

protected:
    void mousePressEvent(QMouseEvent *e) override;
    void mouseReleaseEvent(QMouseEvent *e) override;
    void mouseMoveEvent(QMouseEvent *e) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    // English mode sends the key straight on (Shift only refreshes the captions). Returns true
    // when the pinyin rules are to decide instead.
    bool handleUncomposedKey(int key, const QString &text, bool pressed);
    void fitCaptions();

    Ui::QwsKeyBoardWidget *ui;
    QPushButton *keyButtons[4][15] = {};
    QPushButton *shiftButton = nullptr;
    QStyle *keyCapStyle = nullptr;
    bool shifted = false;
    QButtonGroup *hzGroup;
    QButtonGroup *keyGroup;
    int imeMethod = 0; // 0 English, 1 pinyin
    QString preEdit;
    QString readyHzList;
    int hzOffset = 0;
    int dragging = 0;
    QPoint dragLast;
};
