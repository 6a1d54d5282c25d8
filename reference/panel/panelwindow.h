// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "reference/client/client.h"

#include <QWidget>

class DevicePanel;
class QLabel;
class QLineEdit;
class QPushButton;

/// The window of devredir-panel: the state of the connection above a DevicePanel.
class PanelWindow : public QWidget
{
    Q_OBJECT

public:
    explicit PanelWindow(const Client::Settings &settings, QWidget *parent = nullptr);

    /// Loads the component and connects.
    void start();
    /// Takes all devices back and then ends the program.
    void leave();

Q_SIGNALS:
    /// leave() is done.
    void left();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void tell(const QString &text);
    void addPanel();
    void notConnected(SpicePortSession::End end, const QString &reason);
    QString place() const { return m_client.settings().address->uri; }

    Client m_client;
    QLabel *m_state;
    QLineEdit *m_password;
    QPushButton *m_again;
    DevicePanel *m_panel = nullptr;
};
