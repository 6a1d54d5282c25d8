// SPDX-License-Identifier: LGPL-2.1-or-later
#include "panelwindow.h"

#include "devicepanel.h"
#include "reference/client/escaped.h"
#include "reference/client/rulesfile.h"
#include "reference/client/translatedtext.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <spice-client.h> // a connection to a signal needs its arguments' types

PanelWindow::PanelWindow(const Client::Settings &settings, QWidget *parent)
    : QWidget(parent), m_client(settings), m_state(new QLabel), m_password(new QLineEdit),
      m_again(new QPushButton(tr("&Try again")))
{
    setWindowTitle(tr("USB devices"));
    resize(480, 360);
    m_state->setWordWrap(true);
    m_state->setTextFormat(Qt::PlainText);
    m_state->setObjectName(QStringLiteral("state"));
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setPlaceholderText(tr("Password"));
    m_password->setAccessibleName(tr("Password of the virtual machine"));
    m_again->setObjectName(QStringLiteral("again"));
    m_password->hide();
    m_again->hide();
    auto *line = new QHBoxLayout;
    line->addWidget(m_state, 1);
    line->addWidget(m_password);
    line->addWidget(m_again);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(line);

    connect(m_password, &QLineEdit::returnPressed, m_again, &QPushButton::click);
    connect(m_again, &QPushButton::clicked, this, [this] {
        tell(tr("Connecting to %1 …").arg(place()));
        m_client.connectAgain(m_password->text());
    });
    connect(&m_client, &Client::connected, this, [this] { tell(tr("Connected to %1").arg(place())); });
    connect(&m_client, &Client::notConnected, this, &PanelWindow::notConnected);
    connect(&m_client, &Client::connectionLost, this, [this](const QString &reason, int pauseSeconds) {
        tell(tr("The connection is lost: %1. Trying again in %2 s.").arg(translatedText(reason)).arg(pauseSeconds));
    });
    connect(&m_client, &Client::left, this, &PanelWindow::left);
}

void PanelWindow::start()
{
    tell(m_client.settings().address ? tr("Connecting to %1 …").arg(place()) : tr("No virtual machine was named."));
    QString error;
    if (m_client.start(error))
        addPanel();
    else
        tell(translatedText(error));
}

void PanelWindow::addPanel()
{
    m_panel = new DevicePanel(m_client.devices(), RulesFile::path());
    layout()->addWidget(m_panel);
    const auto showChannels = [this] { m_panel->setChannels(m_client.openChannels()); };
    connect(&m_client, &Client::channelChanged, m_panel, showChannels);
    connect(&m_client, &Client::channelGone, m_panel, showChannels);
    connect(&m_client, &Client::connectionLost, m_panel, [this] { m_panel->setChannels(0); });
    connect(m_panel, &DevicePanel::rulesChanged, &m_client.autoShare(), &AutoShare::setRules);
    const auto tellStopped = [this](const QString &id) { // later, when the panel has its name again
        m_panel->notice(tr("%1 comes and goes, and is shared only if you ask for it.").arg(m_panel->nameOf(id)));
    };
    connect(&m_client.autoShare(), &AutoShare::stopped, m_panel, tellStopped, Qt::QueuedConnection);
    m_client.autoShare().setRules(m_panel->rules());
}

void PanelWindow::notConnected(SpicePortSession::End end, const QString &reason)
{
    const bool isForPassword = end == SpicePortSession::End::Password;
    m_state->setText(tr("No connection to %1: %2\n%3")
                         .arg(place(), escaped(translatedText(reason)),
                              isForPassword ? tr("Type the password here.")
                                            : translatedText(QString::fromLatin1(SpicePortSession::cureOf(end)))));
    m_again->show();
    m_password->setVisible(isForPassword);
    if (isForPassword)
        m_password->setFocus();
}

void PanelWindow::tell(const QString &text)
{
    m_state->setText(escaped(text));
    m_again->hide();
    m_password->hide();
}

void PanelWindow::leave()
{
    delete m_panel; // what feeds it goes first
    m_panel = nullptr;
    m_client.leave();
}

void PanelWindow::closeEvent(QCloseEvent *event)
{
    event->accept();
    leave();
}
