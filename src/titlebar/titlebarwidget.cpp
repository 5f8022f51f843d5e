#include "titlebarwidget.h"
#include "ui_titlebarwidget.h"

#include "controlcommand.h"
#include "customlabel.h"
#include "datetimesettingdlg.h"
#include "qtmyiconstyle.h"
#include "qwskeyboardwidget.h"
#include "startmenumanager.h"
#include "sysrundialog.h"

#include <QDateTime>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLoggingCategory>
#include <QMenu>
#include <QMessageBox>
#include <QNetworkInterface>
#include <QNetworkProxy>
#include <QProcess>
#include <QScreen>
#include <QTimer>
#include <QUdpSocket>

Q_LOGGING_CATEGORY(lcTitleBar, "tideshell.titlebar", QtWarningMsg)

namespace {

QList<InterfaceAddresses> currentInterfaces()
{
    QList<InterfaceAddresses> list;
    const QList<QNetworkInterface> all = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &iface : all) {
        InterfaceAddresses entry{iface.name(), {}};
        const QList<QNetworkAddressEntry> entries = iface.addressEntries();
        for (const QNetworkAddressEntry &address : entries)
            entry.addresses.append(address.ip().toString());
        list.append(entry);
    }
    return list;
}

// Port 60000; development machines and tests that run several shells at once give each its
// own through TIDESHELL_CONTROL_PORT (0: any free port).
quint16 controlPort()
{
    bool ok = false;
    const int port = qEnvironmentVariableIntValue("TIDESHELL_CONTROL_PORT", &ok);
    return ok && port >= 0 && port < 65536 ? quint16(port) : ControlPort;
}

QString dateText()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy/M/d hh:mm"));
}

} // namespace

TitleBarWidget::TitleBarWidget(QWidget *parent) : QWidget(parent), ui(new Ui::TitleBarWidget)
{
    m_keyboard = new QwsKeyBoardWidget(nullptr);

    // The bar follows every window event but keeps no list of client windows.
    if (WindowServer *server = WindowServer::instance())
        connect(server, &WindowServer::windowEvent, this, &TitleBarWidget::onWindowEvent);

    ui->setupUi(this);
    setFocusPolicy(Qt::NoFocus);
    ui->sftKbd->setFixedSize(48, 48);

    m_keyboard->hide();
    connect(m_keyboard, &QwsKeyBoardWidget::newKeyEvent, this, &TitleBarWidget::onSftKbdKeyPressed);
    connect(m_keyboard, &QwsKeyBoardWidget::newString, this, &TitleBarWidget::onSftKbdNewString);

    connect(ui->dateLabel, &CustomLabel::clicked, this, &TitleBarWidget::onDateLabelClicked);
    connect(ui->ipLabel, &CustomLabel::clicked, this, &TitleBarWidget::onIpLabelClicked);
    connect(ui->sftKbd, &CustomLabel::clicked, this, &TitleBarWidget::onSftKbdBtnClicked);

    QPalette pal = palette();
    pal.setBrush(QPalette::All, QPalette::Window, QColor(255, 255, 255, 128));
    setPalette(pal);
    setAutoFillBackground(true);

    // Tapping the bar must never take the keyboard focus from the client being typed into.
    setWindowFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::CustomizeWindowHint |
                   Qt::WindowDoesNotAcceptFocus);
    setAttribute(Qt::WA_ShowWithoutActivating);

    m_clockTimer = new QTimer(this);
    m_clockTimer->setSingleShot(true);
    connect(m_clockTimer, &QTimer::timeout, this, &TitleBarWidget::onTimeOut);
    onTimeOut();

    buildSystemMenu();

    // Other programs steer the bar through this port. If it cannot be bound the shell runs
    // without remote control.
    m_ctrlSocket = new QUdpSocket(this);
    // Datagrams on the local network never go through a proxy; asking the system for one
    // would load the proxy library and start its thread.
    m_ctrlSocket->setProxy(QNetworkProxy::NoProxy);
    m_ctrlSocket->bind(controlPort(), QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    connect(m_ctrlSocket, &QUdpSocket::readyRead, this, &TitleBarWidget::onCtrlSockActivated);

    // Laid out once at the bottom, then hidden: the whole screen starts free for clients.
    position = TitleBarBottom;
    showTitleBar();
    hideTitleBar();
}

TitleBarWidget::~TitleBarWidget()
{
    m_ctrlSocket->close();
    delete m_ctrlSocket;
    delete m_clockTimer;
    delete ui;
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

void TitleBarWidget::onSftKbdBtnClicked()
{
    m_keyboard->setVisible(m_keyboard->isHidden());
}

void TitleBarWidget::onIpLabelClicked()
{
    ui->ipLabel->setText(ipText(currentInterfaces()));
}

void TitleBarWidget::showTitleBar()
{
    const QSize screen = QGuiApplication::primaryScreen()->geometry().size();
    const QRect bar = titleBarRect(screen, position);
    setMaximumSize(bar.size());
    setMinimumSize(bar.size());
    setGeometry(bar);
    if (WindowServer *server = WindowServer::instance())
        server->setMaxWindowRect(clientAreaRect(screen, position));
    show();

    // The menu opens with its lower edge on the start button's top edge (its height is
    // taken when it opens); for a bar at the top the menu's own placement keeps it on the
    // screen.
    m_menuPos = QPoint(bar.x() + ui->sysStartBtn->x(), bar.y() + ui->sysStartBtn->y());
}

void TitleBarWidget::hideTitleBar()
{
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
    if (isVisible())
        showTitleBar();
    else
        hideTitleBar();
}

void TitleBarWidget::onSpecialKey(int keycode, bool isPressed)
{
    if (!isPressed)
        return;
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
    while (m_ctrlSocket->hasPendingDatagrams()) {
        QByteArray datagram;
        datagram.resize(qMax<qint64>(0, m_ctrlSocket->pendingDatagramSize()));
        QHostAddress sender;
        quint16 senderPort = 0;
        const qint64 got =
            m_ctrlSocket->readDatagram(datagram.data(), datagram.size(), &sender, &senderPort);
        if (got < 0)
            continue;
        datagram.truncate(got);
        QMetaObject::invokeMethod(
            this, [=] { runControlCommand(datagram, sender, senderPort); }, Qt::QueuedConnection);
    }
}

void TitleBarWidget::runControlCommand(const QByteArray &datagram, const QHostAddress &sender,
                                       quint16 senderPort)
{
    const ControlCommand cmd = parseControlCommand(datagram);
    printControlDebugLine(cmd);
    if (!cmd.isValid())
        return;
    WindowServer *server = WindowServer::instance();
    switch (cmd.kind) {
    case ControlCommand::Close:
        hideTitleBar();
        break;
    case ControlCommand::Open:
        showTitleBar();
        break;
    case ControlCommand::Toggle:
        if (isHidden())
            showTitleBar();
        else
            hideTitleBar();
        break;
    case ControlCommand::Top:
        position = TitleBarTop;
        showTitleBar();
        break;
    case ControlCommand::Bottom:
        position = TitleBarBottom;
        showTitleBar();
        break;
    case ControlCommand::KbdShow:
        // -1 steps to the next method, 0 is English, 1 pinyin; any other number would leave
        // a keyboard that types nothing, so it only shows the keyboard.
        if (cmd.methodGiven && cmd.method >= -1 && cmd.method <= 1)
            m_keyboard->changeMethod(cmd.method);
        m_keyboard->setVisible(true);
        break;
    case ControlCommand::KbdHide:
        m_keyboard->setVisible(false);
        break;
    case ControlCommand::KbdToggle:
        m_keyboard->setVisible(m_keyboard->isHidden());
        break;
    case ControlCommand::AddLabel:
        addLabel(cmd.name, cmd.text, sender, senderPort);
        break;
    case ControlCommand::DelLabel:
        deleteLabel(cmd.name);
        break;
    case ControlCommand::TextColor:
        setChildTextColor(QColor::fromRgb(cmd.color.r, cmd.color.g, cmd.color.b, cmd.color.a));
        break;
    case ControlCommand::WindowColor: {
        QPalette pal = palette();
        pal.setColor(QPalette::All, QPalette::Window,
                     QColor::fromRgb(cmd.color.r, cmd.color.g, cmd.color.b, cmd.color.a));
        setPalette(pal);
        break;
    }
    case ControlCommand::Mouse:
        if (server)
            server->sendMouseEvent(QPoint(cmd.mouse.x, cmd.mouse.y), cmd.mouse.stat,
                                   cmd.mouse.wheel);
        break;
    case ControlCommand::Key:
        if (server)
            server->sendKeyEvent(cmd.key.unicode, cmd.key.keyCode,
                                 Qt::KeyboardModifiers(cmd.key.modifier), cmd.key.pressed, false);
        break;
    case ControlCommand::None:
        break;
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
    m_ctrlSocket->writeDatagram(clickReport(label->objectName()), it->address, it->port);
}

// ---- system menu ------------------------------------------------------------------------

void TitleBarWidget::buildSystemMenu()
{
    m_iconStyle = new QTMyIconStyle;
    m_sysMenu = new QMenu(this);
    m_sysMenu->setStyle(m_iconStyle);

    // Entry files live in fixed folders on the device; a development machine or a test can
    // name another folder holding the same two sub-folders.
    const QString root = qEnvironmentVariable("TIDESHELL_STARTMENU_DIR");
    m_startMenu = root.isEmpty()
                      ? new StartMenuManager(m_sysMenu, this)
                      : new StartMenuManager(m_sysMenu, root + QStringLiteral("/.Program"),
                                             root + QStringLiteral("/.Setting"), this);
    if (WindowServer *server = WindowServer::instance())
        m_startMenu->setProcessEnvironment(server->clientEnvironment());
    connect(m_startMenu, &StartMenuManager::innerCommand, this, &TitleBarWidget::onInnerCommand);
    m_startMenu->loadStartMenu();

    connect(m_sysMenu, &QMenu::aboutToHide, this, &TitleBarWidget::onSysMenuHidden);

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

    m_runDialog = new SysRunDialog(this);
    m_runDialog->setModal(false);
    m_runDialog->setKeyboardWidget(m_keyboard);
    connect(m_runDialog, &QDialog::accepted, this, &TitleBarWidget::onSysRunDialogAccepted);
}

void TitleBarWidget::on_sysStartBtn_clicked(bool checked)
{
    // The menu's size is worked out here, not at start-up: laying out its entries with their
    // fonts and icons is a good part of building the bar.
    if (checked && m_sysMenu->isHidden())
        m_sysMenu->popup(m_menuPos - QPoint(0, m_sysMenu->sizeHint().height()));
    else
        m_sysMenu->hide();
}

void TitleBarWidget::onSysMenuHidden()
{
    // The button stays pressed exactly while the menu is open.
    ui->sysStartBtn->setChecked(false);
}

void TitleBarWidget::onSysMenuRunTrigger()
{
    if (!m_runDialog->isVisible()) {
        // Centred on the bar, as dialogs are on their parent, it would reach under the bar,
        // which stays on top and would cover its buttons; centred on the window area instead.
        QRect frame(QPoint(), m_runDialog->sizeHint());
        frame.moveCenter(
            clientAreaRect(QGuiApplication::primaryScreen()->size(), position).center());
        m_runDialog->move(frame.topLeft());
    }
    // Remembers whether the keyboard was up, clears the line, brings up the keyboard and
    // the dialog; nothing happens while the dialog is already open.
    m_runDialog->showWithKeyboard();
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
    // The reboot ends the shell; until it does, the shell waits for it.
    QProcess reboot;
    reboot.start(QStringLiteral("reboot"), QStringList(), QIODevice::ReadWrite);
    reboot.waitForStarted(30000);
    reboot.waitForFinished(30000);
}
