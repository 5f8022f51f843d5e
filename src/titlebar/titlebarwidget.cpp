#include "titlebarwidget.h"
#include "ui_titlebarwidget.h"

#include "controlchannel.h"
#include "controlcommand.h"
#include "customlabel.h"
#include "datetimesettingdlg.h"
#include "qtmyiconstyle.h"
#include "qwskeyboardwidget.h"
#include "servicenotify.h"
#include "startmenumanager.h"
#include "sysrundialog.h"

#include <QDateTime>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLoggingCategory>
#include <QMenu>
#include <QMessageBox>
#include <QPaintEvent>
#include <QPainter>
#include <QProcess>
#include <QScreen>
#include <QTimer>

#include <algorithm>
#include <ifaddrs.h>

Q_LOGGING_CATEGORY(lcTitleBar, "tideshell.titlebar", QtWarningMsg)

namespace {

QList<InterfaceAddresses> currentInterfaces()
{
    // In the system's order, which gives an interface's IPv4 addresses before its IPv6 ones.
    QList<InterfaceAddresses> list;
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0)
        return list;
    for (const ifaddrs *at = all; at; at = at->ifa_next) {
        if (!at->ifa_addr ||
            (at->ifa_addr->sa_family != AF_INET && at->ifa_addr->sa_family != AF_INET6))
            continue;
        const QString name = QString::fromLocal8Bit(at->ifa_name);
        QHostAddress address(at->ifa_addr);
        // A link-local IPv6 address means something only together with its interface.
        if (address.isLinkLocal() && address.protocol() == QAbstractSocket::IPv6Protocol)
            address.setScopeId(name);
        auto it = std::find_if(list.begin(), list.end(),
                               [&](const InterfaceAddresses &i) { return i.name == name; });
        if (it == list.end())
            it = list.insert(list.end(), InterfaceAddresses{name, {}});
        it->addresses.append(address.toString());
    }
    freeifaddrs(all);
    return list;
}

QString dateText()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy/M/d hh:mm"));
}

} // namespace

TitleBarWidget::TitleBarWidget(const ShellSettings &settings, QWidget *parent)
    : QWidget(parent), ui(new Ui::TitleBarWidget)
{
    // Other programs steer the bar through this port. It is bound before anything else is
    // built, so commands sent as soon as the shell starts wait in the socket until the event
    // loop runs; if it cannot be bound the shell runs without remote control.
    m_ctrlPort = new ControlChannel(settings, this);
    connect(m_ctrlPort, &ControlChannel::readyRead, this, &TitleBarWidget::onCtrlSockActivated);

    // The bar follows every window event but keeps no list of client windows.
    if (WindowServer *server = WindowServer::instance()) {
        connect(server, &WindowServer::windowEvent, this, &TitleBarWidget::onWindowEvent);
        // What lies under the translucent bar may have changed.
        connect(server, &WindowServer::windowEvent, this, [this] {
            if (isVisible())
                update();
        });
    }

    ui->setupUi(this);
    setFocusPolicy(Qt::NoFocus);
    ui->sftKbd->setFixedSize(48, 48);
    // The start button takes the bar's whole height, so that its top edge, on which the
    // system menu opens, is the bar's top edge and the open menu leaves the bar uncovered.
    ui->sysStartBtn->setSizePolicy(ui->sysStartBtn->sizePolicy().horizontalPolicy(),
                                   QSizePolicy::Preferred);

    connect(ui->dateLabel, &CustomLabel::clicked, this, &TitleBarWidget::onDateLabelClicked);
    connect(ui->ipLabel, &CustomLabel::clicked, this, &TitleBarWidget::onIpLabelClicked);
    connect(ui->sftKbd, &CustomLabel::clicked, this, &TitleBarWidget::onSftKbdBtnClicked);

    QPalette pal = palette();
    pal.setBrush(QPalette::All, QPalette::Window, QColor(255, 255, 255, 128));
    setPalette(pal);

    // Tapping the bar must never take the keyboard focus from the client being typed into.
    setWindowFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::CustomizeWindowHint |
                   Qt::WindowDoesNotAcceptFocus);
    setAttribute(Qt::WA_ShowWithoutActivating);

    m_clockTimer = new QTimer(this);
    m_clockTimer->setSingleShot(true);
    connect(m_clockTimer, &QTimer::timeout, this, &TitleBarWidget::onTimeOut);
    onTimeOut();

    buildSystemMenu(settings.startMenuDir);
    // Clients are served as soon as the bar exists. The menu is sized when it first opens
    // (that loads the fonts of its captions); the keyboard and the run dialog take some
    // megabytes and are made when first asked for.

    // Laid out once at the bottom, then hidden: the whole screen starts free for clients.
    position = TitleBarBottom;
    showTitleBar();
    hideTitleBar();
}

TitleBarWidget::~TitleBarWidget()
{
    delete m_ctrlPort;
    delete m_clockTimer;
    delete ui;
    // The keyboard (a window of its own, no parent) and the menu's style live exactly as
    // long as the bar. The menu goes before the style it paints with.
    delete m_sysMenu;
    delete m_iconStyle;
    delete m_keyboard;
}

// The background is translucent over the desktop. Qt's framebuffer platforms copy each window
// to the screen as it is, and X without a compositing manager does the same, so the bar lays
// its colour over the desktop itself rather than leaving the mixing to the platform.
void TitleBarWidget::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    painter.setClipRegion(event->region());
    if (WindowServer *server = WindowServer::instance())
        painter.drawImage(0, 0, server->desktopImage(geometry()));
    painter.fillRect(rect(), palette().brush(QPalette::Window));
}

void TitleBarWidget::onTimeOut()
{
    refreshDate();
    m_clockTimer->start(clockInterval(QTime::currentTime()));
    ui->ipLabel->setText(ipText(currentInterfaces()));
}

void TitleBarWidget::refreshDate()
{
    ui->dateLabel->setText(dateText());
}

void TitleBarWidget::onDateLabelClicked()
{
    // Modal: the shell waits here until the user is done with the clock.
    DateTimeSettingDlg dialog(nullptr);
    if (dialog.exec() == QDialog::Accepted)
        dialog.setSystemDateTime();
    refreshDate();
}

void TitleBarWidget::onInnerCommand(QString name, QStringList, QString)
{
    if (name == QLatin1String("sys_man_date"))
        onDateLabelClicked();
}

QwsKeyBoardWidget *TitleBarWidget::keyboard()
{
    if (!m_keyboard) {
        m_keyboard = new QwsKeyBoardWidget(nullptr);
        m_keyboard->installEventFilter(this);
        connect(m_keyboard, &QwsKeyBoardWidget::newKeyEvent, this,
                &TitleBarWidget::onSftKbdKeyPressed);
        connect(m_keyboard, &QwsKeyBoardWidget::newString, this,
                &TitleBarWidget::onSftKbdNewString);
    }
    return m_keyboard;
}

void TitleBarWidget::onSftKbdBtnClicked()
{
    keyboard()->setVisible(keyboard()->isHidden());
}

void TitleBarWidget::onIpLabelClicked()
{
    ui->ipLabel->setText(ipText(currentInterfaces()));
}

void TitleBarWidget::showTitleBar()
{
    m_barChangePending = false; // a direct call overrides what commands asked for
    const QSize screen = QGuiApplication::primaryScreen()->geometry().size();
    placeBar(screen);
    if (WindowServer *server = WindowServer::instance())
        server->setMaxWindowRect(clientAreaRect(screen, position));
    show();
}

void TitleBarWidget::placeBar(const QSize &screen)
{
    const QRect bar = titleBarRect(screen, position);
    setMaximumSize(bar.size());
    setMinimumSize(bar.size());
    setGeometry(bar);
    m_placedPosition = position;

    // For a bar at the top the menu's own placement keeps it on the screen.
    m_menuPos = menuPosition();
    keepKeyboardOffBar();
}

QPoint TitleBarWidget::menuPosition() const
{
    const int menuHeight = m_sysMenu ? m_sysMenu->height() : 0;
    return QPoint(x() + ui->sysStartBtn->x(), y() + ui->sysStartBtn->y() - menuHeight);
}

bool TitleBarWidget::eventFilter(QObject *watched, QEvent *event)
{
    // The menu's height is known for sure only once it is shown (styles and fonts settle
    // then); from then on the menu opens where its real height puts it, this time included.
    if (watched == m_sysMenu && event->type() == QEvent::Show) {
        const QPoint assumed = m_menuPos;
        m_menuPos = menuPosition();
        if (m_sysMenu->pos() == assumed && m_menuPos != assumed)
            m_sysMenu->move(m_menuPos);
    }
    if (watched == m_keyboard && event->type() == QEvent::Show)
        keepKeyboardOffBar();
    return QWidget::eventFilter(watched, event);
}

// The keyboard floats where the user dragged it, but never over the bar: one that would
// cover it is put against the bar's inner edge instead.
void TitleBarWidget::keepKeyboardOffBar()
{
    if (!isVisible() || !m_keyboard || !m_keyboard->isVisible())
        return;
    QRect keyboard = m_keyboard->frameGeometry();
    if (!keyboard.intersects(geometry()))
        return;
    const QRect area = clientAreaRect(QGuiApplication::primaryScreen()->size(), position);
    if (position == TitleBarTop)
        keyboard.moveTop(area.top());
    else
        keyboard.moveBottom(area.bottom());
    m_keyboard->move(keyboard.topLeft());
}

void TitleBarWidget::hideTitleBar()
{
    m_barChangePending = false;
    hide();
    if (WindowServer *server = WindowServer::instance())
        server->setMaxWindowRect(QRect(QPoint(0, 0), QGuiApplication::primaryScreen()->size()));
}

void TitleBarWidget::changeTitleBarPosition(TitleBarPosition pos)
{
    position = pos;
    showTitleBar();
}

void TitleBarWidget::onScreenTransformed()
{
    applyPendingBarChanges();
    if (isVisible())
        showTitleBar();
    else
        hideTitleBar();
}

void TitleBarWidget::onSpecialKey(int keycode, bool isPressed)
{
    if (!isPressed)
        return;
    applyPendingBarChanges();
    switch (keycode) {
    case Qt::Key_F11:
        if (isVisible())
            hideTitleBar();
        else
            showTitleBar();
        break;
    case Qt::Key_F12:
        ui->sysStartBtn->setChecked(true);
        on_sysStartBtn_clicked(true);
        break;
    default: // F10 is dead on purpose
        break;
    }
}

void TitleBarWidget::onWindowEvent(ClientWindow *, WindowServer::WindowEvent) {}

void TitleBarWidget::onSftKbdKeyPressed(QKeyEvent *e)
{
    int unicode = e->text().isEmpty() ? 0 : e->text().at(0).unicode();
    switch (e->key()) {
    case Qt::Key_Backspace:
        unicode = 8;
        break;
    case Qt::Key_Enter:
        unicode = 10;
        break;
    case Qt::Key_Escape:
        unicode = 27;
        break;
    default:
        break;
    }
    if (WindowServer *server = WindowServer::instance())
        server->sendKeyEvent(unicode, e->key(), e->modifiers(), e->type() == QEvent::KeyPress,
                             false);
    // The keyboard allocates one event per emission and leaves it to us.
    delete e;
}

void TitleBarWidget::onSftKbdNewString(QString str)
{
    WindowServer *server = WindowServer::instance();
    if (!server)
        return;
    for (const QChar c : std::as_const(str)) {
        server->sendKeyEvent(c.unicode(), 0, Qt::NoModifier, true, false);
        server->sendKeyEvent(c.unicode(), 0, Qt::NoModifier, false, false);
    }
}

// ---- control port -----------------------------------------------------------------------

void TitleBarWidget::onCtrlSockActivated()
{
    // Datagrams are carried out strictly in arrival order, each from the event loop rather
    // than from here: an injected click may open a modal dialog (the date label, the reboot
    // question), and the socket announces nothing more until this handler has returned, so
    // the keys that would close the dialog could not get in.
    const QList<ControlChannel::Received> pending = m_ctrlPort->takePending();
    for (const ControlChannel::Received &r : pending) {
        QMetaObject::invokeMethod(
            this, [=] { runControlCommand(r.command, r.sender, r.senderPort); },
            Qt::QueuedConnection);
    }
}

void TitleBarWidget::runControlCommand(const ControlCommand &cmd, const QHostAddress &sender,
                                       quint16 senderPort)
{
    printControlDebugLine(cmd);
    if (!cmd.isValid())
        return;
    WindowServer *server = WindowServer::instance();
    switch (cmd.kind) {
    case ControlCommand::Close:
        requestBar(false);
        break;
    case ControlCommand::Open:
        requestBar(true);
        break;
    case ControlCommand::Toggle:
        requestBar(!barShownSoon());
        break;
    case ControlCommand::Top:
        position = TitleBarTop;
        requestBar(true);
        break;
    case ControlCommand::Bottom:
        position = TitleBarBottom;
        requestBar(true);
        break;
    case ControlCommand::KbdShow:
        // -1 steps to the next method, 0 is English, 1 pinyin; any other number would leave
        // a keyboard that types nothing, so it only shows the keyboard.
        if (cmd.methodGiven && cmd.method >= -1 && cmd.method <= 1)
            keyboard()->changeMethod(cmd.method);
        keyboard()->setVisible(true);
        break;
    case ControlCommand::KbdHide:
        if (m_keyboard)
            m_keyboard->hide();
        break;
    case ControlCommand::KbdToggle:
        keyboard()->setVisible(keyboard()->isHidden());
        break;
    case ControlCommand::AddLabel:
        // A label added now keeps its own colours: the colour asked for before it goes to
        // the widgets there before it.
        applyPendingTextColor();
        addLabel(cmd.name, cmd.text, sender, senderPort);
        break;
    case ControlCommand::DelLabel:
        deleteLabel(cmd.name);
        break;
    case ControlCommand::TextColor:
        m_pendingTextColor = QColor::fromRgb(cmd.color.r, cmd.color.g, cmd.color.b, cmd.color.a);
        schedulePendingBarChanges();
        break;
    case ControlCommand::WindowColor: {
        QPalette pal = palette();
        pal.setColor(QPalette::All, QPalette::Window,
                     QColor::fromRgb(cmd.color.r, cmd.color.g, cmd.color.b, cmd.color.a));
        setPalette(pal);
        break;
    }
    case ControlCommand::Mouse:
        // Injected input lands where the bar is once every earlier command is in effect.
        applyPendingBarChanges();
        if (server)
            server->sendMouseEvent(QPoint(cmd.mouse.x, cmd.mouse.y), cmd.mouse.stat,
                                   cmd.mouse.wheel);
        break;
    case ControlCommand::Key:
        applyPendingBarChanges();
        if (server)
            server->sendKeyEvent(cmd.key.unicode, cmd.key.keyCode,
                                 Qt::KeyboardModifiers(cmd.key.modifier), cmd.key.pressed, false);
        break;
    case ControlCommand::None:
        break;
    }
}

// Commands that move, show, hide or recolour the bar only note what they want; one pass on the
// next turn of the event loop then lays out and recolours the bar once, however many commands
// came in a burst. The end state is the same as carrying each out at once: a toggle asks
// what the bar will be, labels keep their colours (see AddLabel), and injected input and
// direct calls see every earlier change in effect.
bool TitleBarWidget::barShownSoon() const
{
    return m_barChangePending ? m_barWanted : !isHidden();
}

void TitleBarWidget::requestBar(bool shown)
{
    m_barWanted = shown;
    m_barChangePending = true;
    schedulePendingBarChanges();
}

void TitleBarWidget::schedulePendingBarChanges()
{
    if (m_barChangesScheduled)
        return;
    m_barChangesScheduled = true;
    QMetaObject::invokeMethod(this, &TitleBarWidget::applyPendingBarChanges, Qt::QueuedConnection);
}

void TitleBarWidget::applyPendingTextColor()
{
    if (m_pendingTextColor.isValid()) {
        setChildTextColor(m_pendingTextColor);
        m_pendingTextColor = QColor();
    }
}

void TitleBarWidget::applyPendingBarChanges()
{
    m_barChangesScheduled = false;
    applyPendingTextColor();
    if (m_barChangePending) {
        if (m_barWanted) {
            showTitleBar();
        } else {
            // Moved and hidden in the same burst: it waits hidden at its new place.
            if (m_placedPosition != position)
                placeBar(QGuiApplication::primaryScreen()->geometry().size());
            hideTitleBar();
        }
    }
}

void TitleBarWidget::addLabel(const QString &name, const QString &text, const QHostAddress &sender,
                              quint16 senderPort)
{
    const auto it = m_labels.constFind(name);
    if (it != m_labels.constEnd()) {
        // Reports keep going to whoever made the label first.
        it->label->setText(text);
        qCInfo(lcTitleBar).noquote() << "label text" << name;
        return;
    }
    auto *label = new CustomLabel(this);
    connect(label, &CustomLabel::clicked, this, &TitleBarWidget::onLabelClicked);
    label->setObjectName(name);
    label->setText(text);
    ui->middleLayout->addWidget(label);
    m_labels.insert(name, LabelEntry{sender, senderPort, label});
    qCInfo(lcTitleBar).noquote() << "label added" << name;
}

void TitleBarWidget::deleteLabel(const QString &name)
{
    const auto it = m_labels.find(name);
    if (it == m_labels.end())
        return;
    if (CustomLabel *label = it->label) {
        ui->middleLayout->removeWidget(label);
        delete label;
    }
    m_labels.erase(it);
    qCInfo(lcTitleBar).noquote() << "label removed" << name;
}

void TitleBarWidget::setChildTextColor(const QColor &color)
{
    // Only the widgets there now; labels added later keep their own colours.
    const QObjectList kids = children();
    for (QObject *child : kids) {
        if (!child->isWidgetType())
            continue;
        auto *widget = static_cast<QWidget *>(child);
        QPalette pal = widget->palette();
        pal.setColor(QPalette::All, QPalette::WindowText, color);
        pal.setColor(QPalette::All, QPalette::Text, color);
        pal.setColor(QPalette::All, QPalette::ButtonText, color);
        widget->setPalette(pal);
    }
}

void TitleBarWidget::onLabelClicked()
{
    auto *label = qobject_cast<CustomLabel *>(sender());
    if (!label)
        return;
    const auto it = m_labels.constFind(label->objectName());
    if (it == m_labels.constEnd())
        return;
    m_ctrlPort->sendTo(clickReport(label->objectName()), it->address, it->port);
}

// ---- system menu ------------------------------------------------------------------------

void TitleBarWidget::buildSystemMenu(const QString &root)
{
    m_iconStyle = new QTMyIconStyle;
    m_sysMenu = new QMenu(this);
    m_sysMenu->setStyle(m_iconStyle);

    // Entry files live in fixed folders on the device; the settings can name another folder
    // holding the same two sub-folders.
    m_startMenu = root.isEmpty()
                      ? new StartMenuManager(m_sysMenu, this)
                      : new StartMenuManager(m_sysMenu, root + QStringLiteral("/.Program"),
                                             root + QStringLiteral("/.Setting"), this);
    if (WindowServer *server = WindowServer::instance())
        m_startMenu->setProcessEnvironment(server->clientEnvironment());
    connect(m_startMenu, &StartMenuManager::innerCommand, this, &TitleBarWidget::onInnerCommand);
    m_startMenu->loadStartMenu();

    connect(m_sysMenu, &QMenu::aboutToHide, this, &TitleBarWidget::onSysMenuHidden);
    m_sysMenu->installEventFilter(this);

    // The captions are fixed Chinese texts, not translations.
    m_programMenu = m_startMenu->programMenu();
    m_programMenu->setTitle(QStringLiteral("程序"));
    m_programMenu->setIcon(QIcon(QStringLiteral(":/icon/sys/program.png")));
    m_settingMenu = m_startMenu->settingMenu();
    m_settingMenu->setTitle(QStringLiteral("设置"));
    m_settingMenu->setIcon(QIcon(QStringLiteral(":/icon/sys/setting.png")));

    m_runAction =
        new QAction(QIcon(QStringLiteral(":/icon/sys/run.png")), QStringLiteral("运行"), m_sysMenu);
    connect(m_runAction, &QAction::triggered, this, &TitleBarWidget::onSysMenuRunTrigger);
    m_sysMenu->addAction(m_runAction);
    m_rebootAction = new QAction(QIcon(QStringLiteral(":/icon/sys/reboot.png")),
                                 QStringLiteral("重启"), m_sysMenu);
    connect(m_rebootAction, &QAction::triggered, this, &TitleBarWidget::onSysMenuRebootTrigger);
    m_sysMenu->addAction(m_rebootAction);
}

void TitleBarWidget::sizeSystemMenu()
{
    // Its real height, so the menu opens with its lower edge on the start button.
    if (m_menuSized)
        return;
    m_menuSized = true;
    m_sysMenu->adjustSize();
    m_menuPos = menuPosition();
}

SysRunDialog *TitleBarWidget::runDialog()
{
    if (!m_runDialog) {
        m_runDialog = new SysRunDialog(this);
        m_runDialog->setModal(false);
        m_runDialog->setKeyboardWidget(keyboard());
        connect(m_runDialog, &QDialog::accepted, this, &TitleBarWidget::onSysRunDialogAccepted);
    }
    return m_runDialog;
}

void TitleBarWidget::on_sysStartBtn_clicked(bool checked)
{
    if (checked && m_sysMenu->isHidden()) {
        sizeSystemMenu();
        m_sysMenu->popup(m_menuPos);
    } else {
        m_sysMenu->hide();
    }
}

void TitleBarWidget::onSysMenuHidden()
{
    // The button stays pressed exactly while the menu is open.
    ui->sysStartBtn->setChecked(false);
}

void TitleBarWidget::onSysMenuRunTrigger()
{
    SysRunDialog *dialog = runDialog();
    if (!dialog->isVisible()) {
        // Centred on the bar, as dialogs are on their parent, it would reach under the bar,
        // which stays on top and would cover its buttons; centred on the window area instead.
        QRect frame(QPoint(), dialog->sizeHint());
        frame.moveCenter(
            clientAreaRect(QGuiApplication::primaryScreen()->size(), position).center());
        dialog->move(frame.topLeft());
    }
    // Remembers whether the keyboard was up, clears the line, brings up the keyboard and
    // the dialog; nothing happens while the dialog is already open.
    dialog->showWithKeyboard();
}

void TitleBarWidget::onSysRunDialogAccepted()
{
    const QString command = m_runDialog->programPath();
    if (!command.isEmpty())
        m_startMenu->runProgram(command, QString());
    // The dialog puts the keyboard back as it was once it has been accepted.
}

void TitleBarWidget::onSysMenuRebootTrigger()
{
    const auto answer =
        QMessageBox::warning(this, tr("Warning"), tr("Do you sure you want to reboot?"),
                             QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    if (answer != QMessageBox::Yes)
        return;
    // The reboot ends the shell; until it does, the shell waits for it (at most a minute, less
    // than the service watchdog, fed just before).
    QProcess reboot;
    ServiceNotify::keepAlive();
    reboot.start(QStringLiteral("reboot"), QStringList(), QIODevice::ReadWrite);
    reboot.waitForStarted(30000);
    reboot.waitForFinished(30000);
}
