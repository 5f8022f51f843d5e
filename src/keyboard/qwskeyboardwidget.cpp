#include "qwskeyboardwidget.h"
#include "ui_qwskeyboardwidget.h"

#include "imetables.h"

#include <QApplication>
#include <QButtonGroup>
#include <QKeyEvent>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QProxyStyle>
#include <QPushButton>
#include <QStyle>
#include <QStyleOption>
#include <QWindow>

namespace {

struct KeyDef
{
    int key;
    QString text;
    int shiftKey;
    QString shiftText;
};

constexpr int Rows = 4;
constexpr int Columns = 15;
using KeyTable = KeyDef[Rows][Columns];

KeyDef same(int key, const QString &text)
{
    return {key, text, key, text};
}

// A character key: the code of each character is its key code.
KeyDef pair(char plain, char shift)
{
    return {plain, QString(QLatin1Char(plain)), shift, QString(QLatin1Char(shift))};
}

// Letters send the upper-case key code either way; only the text follows the latch.
KeyDef letter(char lower)
{
    const char upper = char(lower - 'a' + 'A');
    return {upper, QString(QLatin1Char(lower)), upper, QString(QLatin1Char(upper))};
}

const KeyTable &keyDefs()
{
    // Enter is Key_Enter (not Key_Return), and Backspace and Left share the caption "←".
    static const KeyTable table = {
        {same(Qt::Key_Escape, "ESC"), pair('`', '~'), pair('1', '!'), pair('2', '@'),
         pair('3', '#'), pair('4', '$'), pair('5', '%'), pair('6', '^'), pair('7', '&'),
         pair('8', '*'), pair('9', '('), pair('0', ')'), pair('-', '_'), pair('=', '+'),
         pair('\\', '|')},
        {same(Qt::Key_Tab, "Tab"),
         {Qt::Key_Shift, "Sft", Qt::Key_Shift, "SFT"},
         letter('q'),
         letter('w'),
         letter('e'),
         letter('r'),
         letter('t'),
         letter('y'),
         letter('u'),
         letter('i'),
         letter('o'),
         letter('p'),
         pair('[', '{'),
         pair(']', '}'),
         same(Qt::Key_Backspace, QString(QChar(0x2190)))},
        {same(Qt::Key_Home, "Home"), same(Qt::Key_End, "End"), letter('a'), letter('s'),
         letter('d'), letter('f'), letter('g'), letter('h'), letter('j'), letter('k'), letter('l'),
         pair(';', ':'), pair('\'', '"'), same(Qt::Key_Up, QString(QChar(0x2191))),
         same(Qt::Key_Enter, "Ent")},
        {same(Qt::Key_Delete, "Del"), letter('z'), letter('x'), letter('c'), letter('v'),
         letter('b'), letter('n'), letter('m'), pair(',', '<'), pair('.', '>'), pair('/', '?'),
         same(Qt::Key_Space, " "), same(Qt::Key_Left, QString(QChar(0x2190))),
         same(Qt::Key_Down, QString(QChar(0x2193))), same(Qt::Key_Right, QString(QChar(0x2192)))},
    };
    return table;
}

const KeyDef *cellFor(int id)
{
    if (id < 0)
        return nullptr;
    const int row = id / Columns;
    const int column = id % Columns;
    if (row >= Rows || column >= Columns)
        return nullptr;
    return &keyDefs()[row][column];
}

// Whether a key's text is one of the punctuation marks the pinyin method turns full width.
// Captions such as "←" become "?" in Latin-1 and pass here, but have no full-width form.
bool isPunctKey(const QString &text)
{
    return text.size() == 1 && findPunct(text.toLatin1().constData());
}

bool isLetterKey(int key)
{
    return key >= Qt::Key_A && key <= Qt::Key_Z;
}

const QChar Apostrophe = QLatin1Char('\'');
const QString Ampersand = QStringLiteral("&");
const QString Ampersands = QStringLiteral("&&");
// Captions are never drawn smaller than this.
constexpr int MinCaptionPixels = 9;
constexpr int KeyCapMargin = 1;

// Push buttons whose caption may use the whole cap but a pixel on each side.
class KeyCapStyle : public QProxyStyle
{
public:
    QRect subElementRect(SubElement element, const QStyleOption *option,
                         const QWidget *widget) const override
    {
        if (element == SE_PushButtonContents)
            return option->rect.adjusted(KeyCapMargin, KeyCapMargin, -KeyCapMargin, -KeyCapMargin);
        return QProxyStyle::subElementRect(element, option, widget);
    }
};
const QString BackspaceMarker = QString(QChar(0x0008));

} // namespace

QwsKeyBoardWidget::QwsKeyBoardWidget(QWidget *parent)
    : QWidget(parent), ui(new Ui::QwsKeyBoardWidget)
{
    ui->setupUi(this);
    // The font the device ships, narrow enough for its Latin captions as well; where it is
    // missing the usual fallback applies.
    QFont capFont = font();
    capFont.setFamilies({QStringLiteral("WenQuanYi Micro Hei")});
    setFont(capFont);
    keyCapStyle = new KeyCapStyle;
    keyCapStyle->setParent(this);
    // The keyboard must never take the focus from the client being typed into: it is neither
    // activated when shown nor focusable by the window system.
    setWindowFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                   Qt::WindowDoesNotAcceptFocus);
    setAttribute(Qt::WA_ShowWithoutActivating);
    installEventFilter(this);
    setAttribute(Qt::WA_InputMethodEnabled, true);
    setFocusPolicy(Qt::NoFocus);
    setFocusProxy(QApplication::focusWidget());

    hzGroup = new QButtonGroup(this);
    QPushButton *const candidates[] = {ui->hzBtn0, ui->hzBtn1, ui->hzBtn2, ui->hzBtn3,
                                       ui->hzBtn4, ui->hzBtn5, ui->hzBtn6};
    for (int i = 0; i < 7; ++i)
        hzGroup->addButton(candidates[i], i);
    connect(hzGroup, SIGNAL(idClicked(int)), this, SLOT(onHzClicked(int)));

    keyGroup = new QButtonGroup(this);
    for (int row = 0; row < Rows; ++row) {
        for (int column = 0; column < Columns; ++column) {
            QLayoutItem *item = ui->keyBtnLayout->itemAtPosition(row, column);
            auto *button = item ? qobject_cast<QPushButton *>(item->widget()) : nullptr;
            Q_ASSERT_X(button, "QwsKeyBoardWidget", "every key cell holds a push button");
            keyButtons[row][column] = button;
            if (keyDefs()[row][column].key == Qt::Key_Shift)
                shiftButton = button;
            keyGroup->addButton(button, row * Columns + column);
        }
    }
    connect(keyGroup, SIGNAL(idPressed(int)), this, SLOT(onKeyPressed(int)));
    connect(keyGroup, SIGNAL(idReleased(int)), this, SLOT(onKeyReleased(int)));

    initImeTables();
    updateUI();
}

QwsKeyBoardWidget::~QwsKeyBoardWidget()
{
    delete ui;
}

void QwsKeyBoardWidget::updateUI()
{
    ui->hzSelectGroup->setEnabled(imeMethod == 1);
    for (int row = 0; row < Rows; ++row) {
        for (int column = 0; column < Columns; ++column) {
            const KeyDef &def = keyDefs()[row][column];
            // "&" alone would be taken for a shortcut mark and show nothing.
            if (keyButtons[row][column])
                keyButtons[row][column]->setText(
                    QString(shifted ? def.shiftText : def.text).replace(Ampersand, Ampersands));
        }
    }
    fitCaptions();
}

// The keys are 32 x 28 pixels; captions such as "Home" or "PageDown" are wider than that in
// the device's font at its normal size. The key caps keep only a pixel of margin, and each
// button whose caption still does not fit gets the largest smaller font in which it does, so
// every caption stays whole.
void QwsKeyBoardWidget::fitCaptions()
{
    const QList<QPushButton *> buttons = findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->style() != keyCapStyle)
            button->setStyle(keyCapStyle);
        QFont font = this->font();
        const QString caption = QString(button->text()).replace(Ampersands, Ampersand);
        const int room = button->width() - 2 * KeyCapMargin - 2;
        int pixels = QFontInfo(font).pixelSize();
        while (pixels > MinCaptionPixels && QFontMetrics(font).horizontalAdvance(caption) > room)
            font.setPixelSize(--pixels);
        if (button->font() != font)
            button->setFont(font);
    }
}

void QwsKeyBoardWidget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    fitCaptions();
}

void QwsKeyBoardWidget::emitKeyEvent(int key, QString text, bool pressed)
{
    // Only plain ASCII travels as event text; captions such as "ESC" or "←" are identified by
    // their key code alone.
    const bool ascii = text.size() == 1 && text.at(0).unicode() < 128;
    // The receiver owns the event; with nobody listening, making one would only leak it.
    static const QMetaMethod signal = QMetaMethod::fromSignal(&QwsKeyBoardWidget::newKeyEvent);
    if (!isSignalConnected(signal))
        return;
    emit newKeyEvent(new QKeyEvent(pressed ? QEvent::KeyPress : QEvent::KeyRelease, key,
                                   Qt::NoModifier, ascii ? text : QString(), false, 1));
}

void QwsKeyBoardWidget::changeMethod(int method)
{
    static const QString methodLabels[2] = {QStringLiteral("En"), QString(QChar(0x4E2D))};
    if (method == -1) {
        ++imeMethod;
        if (imeMethod > 1)
            imeMethod = 0;
    } else {
        imeMethod = method;
    }
    if (imeMethod == 0 || imeMethod == 1)
        ui->btnFn->setText(methodLabels[imeMethod]);
    clearIME();
    updateUI();
}

void QwsKeyBoardWidget::changeMethod()
{
    changeMethod(-1);
}

void QwsKeyBoardWidget::on_btnFn_clicked()
{
    changeMethod(-1);
}

bool QwsKeyBoardWidget::handleUncomposedKey(int key, const QString &text, bool pressed)
{
    if (imeMethod == 0) {
        if (key == Qt::Key_Shift)
            updateUI();
        else
            emitKeyEvent(key, text, pressed);
        return false;
    }
    return imeMethod == 1;
}

void QwsKeyBoardWidget::onKeyPressed(int id)
{
    const KeyDef *def = cellFor(id);
    if (!def)
        return;
    const int key = shifted ? def->shiftKey : def->key;
    const QString text = shifted ? def->shiftText : def->text;
    if (!handleUncomposedKey(key, text, true))
        return;

    // Pinyin: whatever acts on the composition or commits text acts on release; the press only
    // passes through to the client what the release will pass through too.
    if (key == Qt::Key_Backspace || key == Qt::Key_Enter || key == Qt::Key_Escape) {
        if (preEdit.isEmpty())
            emitKeyEvent(key, text, true);
        return;
    }
    if (isLetterKey(key))
        return;
    if (key == Qt::Key_Space) {
        if (ui->hzBtn0->text().isEmpty())
            emitKeyEvent(Qt::Key_Space, text, true);
        return;
    }
    // The conversion here is only a test, but it advances the alternation as the release's does.
    if (isPunctKey(text) && !fullWidthPunct(text).isEmpty())
        return;
    if (preEdit.isEmpty())
        emitKeyEvent(key, text, true);
}

void QwsKeyBoardWidget::onKeyReleased(int id)
{
    const KeyDef *def = cellFor(id);
    if (!def)
        return;
    // Shift is a latch: each release flips it, typing never clears it.
    if (def->key == Qt::Key_Shift)
        shifted = !shifted;
    const int key = shifted ? def->shiftKey : def->key;
    const QString text = shifted ? def->shiftText : def->text;
    if (!handleUncomposedKey(key, text, false))
        return;

    if (key == Qt::Key_Escape) {
        if (!preEdit.isEmpty())
            clearIME();
        else
            emitKeyEvent(key, text, false);
        return;
    }
    if (key == Qt::Key_Enter || key == Qt::Key_Shift) {
        if (!preEdit.isEmpty()) {
            emit newString(QString(preEdit).remove(Apostrophe));
            clearIME();
        }
        if (key == Qt::Key_Shift) {
            updateUI();
            return;
        }
        // Sent even after a commit, so the client sees a release without its press.
        emitKeyEvent(key, text, false);
        return;
    }
    if (key == Qt::Key_Backspace) {
        if (!preEdit.isEmpty())
            reloadIME(BackspaceMarker);
        else
            emitKeyEvent(key, text, false);
        return;
    }
    if (key < Qt::Key_Escape) {
        if (key == Qt::Key_Space) {
            if (ui->hzBtn0->text().isEmpty())
                emitKeyEvent(Qt::Key_Space, text, false);
            else
                onHzClicked(0);
            return;
        }
        if (isLetterKey(key)) {
            reloadIME(def->text); // lower case whatever the latch
            return;
        }
    }
    if (isPunctKey(text)) {
        const QString fullWidth = fullWidthPunct(text);
        if (!fullWidth.isEmpty()) {
            emit newString(fullWidth);
            return;
        }
    }
    if (preEdit.isEmpty())
        emitKeyEvent(key, text, false);
}

void QwsKeyBoardWidget::clearIME()
{
    preEdit.clear();
    readyHzList.clear();
    hzOffset = 0;
    ui->imePreTextLabel->setText(preEdit);
    updateReadyHzList();
}

void QwsKeyBoardWidget::reloadIME(QString text)
{
    if (text == BackspaceMarker && !preEdit.isEmpty()) {
        // A trailing apostrophe goes together with the letter before it.
        const int n = preEdit.size() - (preEdit.endsWith(Apostrophe) ? 2 : 1);
        preEdit = n < 1 ? QString() : preEdit.left(n);
    } else {
        preEdit += text;
    }
    // Only a pre-edit that is one whole syllable has candidates; the page offset is kept.
    readyHzList = pinyinMap().value(preEdit);
    updateReadyHzList();
    ui->imePreTextLabel->setText(preEdit);
}

void QwsKeyBoardWidget::reloadIME()
{
    reloadIME(QString());
}

void QwsKeyBoardWidget::removeFirstCharFromIME()
{
    const int apostrophe = preEdit.indexOf(Apostrophe);
    readyHzList.clear();
    hzOffset = 0;
    if (apostrophe < 0) {
        preEdit.clear();
    } else {
        preEdit = preEdit.mid(apostrophe + 1);
        if (!preEdit.isEmpty()) {
            const int n = longestSyllablePrefix(preEdit, preEdit);
            if (n > 0) {
                readyHzList = pinyinMap().value(preEdit.left(n));
                // Marks where the syllable after the one on offer starts.
                preEdit.insert(n, Apostrophe);
            }
        }
    }
    updateReadyHzList();
    ui->imePreTextLabel->setText(preEdit);
}

int QwsKeyBoardWidget::findValidPY(QString py)
{
    return longestSyllablePrefix(py, preEdit);
}

void QwsKeyBoardWidget::updateReadyHzList()
{
    const QList<QAbstractButton *> buttons = hzGroup->buttons();
    const int pageSize = buttons.size();
    const int count = readyHzList.size();
    if (count == 0)
        hzOffset = 0;
    int i = 0;
    int k = hzOffset;
    while (k < count) {
        QAbstractButton *button = hzGroup->button(i);
        button->setEnabled(true);
        button->setText(QString(readyHzList.at(k)));
        if (++i == pageSize)
            break;
        ++k;
    }
    ui->btnPgUp->setEnabled(hzOffset > 0);
    // A full page offers the next one even when nothing follows; paging there shows an empty
    // page with only PageUp enabled.
    ui->btnPgDn->setEnabled(k < count);
    for (; i < pageSize; ++i) {
        QAbstractButton *button = hzGroup->button(i);
        button->setText(QString());
        button->setEnabled(false);
    }
}

void QwsKeyBoardWidget::on_btnPgDn_clicked()
{
    if (readyHzList.isEmpty())
        return;
    const int offset = hzOffset + hzGroup->buttons().size();
    if (offset <= readyHzList.size()) {
        hzOffset = offset;
        updateReadyHzList();
    }
}

void QwsKeyBoardWidget::on_btnPgUp_clicked()
{
    if (readyHzList.isEmpty())
        return;
    const int offset = hzOffset - hzGroup->buttons().size();
    if (offset >= 0) {
        hzOffset = offset;
        updateReadyHzList();
    }
}

void QwsKeyBoardWidget::onHzClicked(int id)
{
    QAbstractButton *button = hzGroup->button(id);
    if (!button)
        return;
    const QString text = button->text();
    if (text.isEmpty()) {
        button->setEnabled(false);
        return;
    }
    emit newString(text);
    removeFirstCharFromIME();
}

// Presses on the keys are taken by the buttons; presses elsewhere (the drag label, the gaps)
// drag the whole keyboard. Points are kept in the parent's coordinates, i.e. the screen's for
// the top-level keyboard, so the widget's own motion does not disturb them.
void QwsKeyBoardWidget::mousePressEvent(QMouseEvent *e)
{
    dragging = 1;
    dragLast = pos() + e->position().toPoint();
}

void QwsKeyBoardWidget::mouseMoveEvent(QMouseEvent *e)
{
    if (!dragging)
        return;
    const QPoint local = e->position().toPoint();
    if (dragLast.x() < 0 && dragLast.y() < 0) {
        dragLast = local;
        return;
    }
    const QPoint point = pos() + local;
    move(pos() + point - dragLast);
    dragLast = point;
}

void QwsKeyBoardWidget::mouseReleaseEvent(QMouseEvent *)
{
    dragging = 0;
    dragLast = QPoint(-1, -1);
}
