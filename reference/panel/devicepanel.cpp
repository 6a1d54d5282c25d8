// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devicepanel.h"

#include "devicerow.h"
#include "reference/client/componentcommand.h"
#include "reference/client/devicesharing.h"
#include "reference/client/escaped.h"
#include "reference/client/rulesfile.h"
#include "reference/client/translatedtext.h"

#include <QAccessible>
#include <QLabel>
#include <QLocale>
#include <QScrollArea>
#include <QVBoxLayout>

#include <iterator>

namespace {
constexpr int SpeedMilliseconds = 1000;
constexpr int NoticeMilliseconds = 10000;
} // namespace

DevicePanel::DevicePanel(DeviceSharing &devices, const QString &rulesFile, QWidget *parent)
    : QWidget(parent), m_devices(devices), m_rulesFile(rulesFile), m_list(new QVBoxLayout),
      m_empty(new QLabel(tr("No USB device is plugged in."))), m_free(new QLabel), m_notice(new QLabel)
{
    auto *rows = new QWidget;
    auto *rowsLayout = new QVBoxLayout(rows);
    rowsLayout->addWidget(m_empty);
    rowsLayout->addLayout(m_list);
    rowsLayout->addStretch();
    auto *area = new QScrollArea;
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    area->setFocusPolicy(Qt::NoFocus); // it follows the switch that has the focus
    area->setWidget(rows);
    m_notice->setWordWrap(true);
    m_notice->setTextFormat(Qt::PlainText);
    m_notice->setObjectName(QStringLiteral("notice"));
    m_free->setObjectName(QStringLiteral("channels"));
    m_list->setSpacing(2 * m_list->spacing()); // so that a reason stands with its device
    rowsLayout->setContentsMargins(0, 0, 0, 0);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_free);
    layout->addWidget(area);
    layout->addWidget(m_notice);

    m_noticeTimer.setSingleShot(true);
    connect(&m_noticeTimer, &QTimer::timeout, m_notice, &QLabel::clear);
    connect(&m_speedTimer, &QTimer::timeout, this, &DevicePanel::showSpeeds);
    m_speedTimer.start(SpeedMilliseconds);
    readRules();
    connect(&m_devices, &DeviceSharing::deviceShared, this, [this](const QString &id) { changed(id); });
    connect(&m_devices, &DeviceSharing::deviceNotShared, this,
            [this](const QString &id, const QString &reason) { changed(id, QString(), reason); });
    connect(&m_devices, &DeviceSharing::deviceTakenBack, this, [this](const QString &id, const QJsonObject &details) {
        const QString reason = details.value(QLatin1String("text")).toString();
        changed(id, reason.isEmpty() ? QString() : tr("%1 was taken back: %2").arg(nameOf(id), translatedText(reason)));
    });
    connect(&m_devices, &DeviceSharing::deviceNotTakenBack, this, &DevicePanel::refresh);
    connect(&m_devices, &DeviceSharing::deviceArrived, this, [this](const QString &id) { changed(id); });
    connect(&m_devices, &DeviceSharing::deviceLeft, this,
            [this](const QString &id) { changed(id, tr("%1 was pulled out.").arg(nameOf(id))); });
    connect(&m_devices, &DeviceSharing::channelLost, this,
            [this](const QString &id) { changed(id, tr("The virtual machine has let go of %1.").arg(nameOf(id))); });
    refresh();
}

void DevicePanel::changed(const QString &deviceId, const QString &told, const QString &refusal)
{
    if (!told.isEmpty())
        notice(told);
    if (refusal.isEmpty())
        m_refusals.remove(deviceId);
    else
        m_refusals.insert(deviceId, refusal);
    refresh();
}

void DevicePanel::setChannels(int channels)
{
    m_channels = channels;
    refresh();
}

QString DevicePanel::nameOf(const QString &deviceId) const
{
    const QString name = m_known.value(deviceId).deviceName;
    return name.isEmpty() ? deviceId : name;
}

void DevicePanel::refresh()
{
    m_known.clear();
    for (const ExterDeviceInfo &device : m_devices.list().value_or(QList<ExterDeviceInfo>()))
        m_known.insert(device.deviceId, device);
    const QStringList before = m_rows.keys();
    for (const QString &deviceId : before) {
        if (!m_known.contains(deviceId))
            m_rows.take(deviceId)->deleteLater();
    }
    for (const ExterDeviceInfo &device : qAsConst(m_known))
        showRow(device);
    m_empty->setVisible(m_rows.isEmpty());
    showChannels();
}

void DevicePanel::showRow(const ExterDeviceInfo &device)
{
    const QString deviceId = device.deviceId;
    DeviceRow *&row = m_rows[deviceId];
    if (!row) {
        row = new DeviceRow;
        m_list->insertWidget(int(std::distance(m_rows.begin(), m_rows.find(deviceId))), row);
        connect(row, &DeviceRow::shareAsked, this, [this, deviceId](bool asked) { share(deviceId, asked); });
        connect(row, &DeviceRow::alwaysAsked, this, [this, deviceId](bool asked) { always(deviceId, asked); });
    }
    const auto here = device.status != 0 ? DeviceRow::State::Shared : DeviceRow::State::Here;
    const DeviceRule *const rule = m_rules.firstThatFits(traitsOf(device));
    row->show(device, m_devices.isPending(deviceId) ? DeviceRow::State::OnItsWay : here, rule && rule->allow);
    if (device.status == 0)
        row->setSpeed(QString());
    showReason(device);
}

// What the component knows against it, or what the last try ended with.
void DevicePanel::showReason(const ExterDeviceInfo &device)
{
    QString reason = m_refusals.value(device.deviceId);
    QString cure = tr("try again");
    const QJsonObject obstacle = device.status == 0 ? obstacleTo(device.deviceId) : QJsonObject();
    const bool isNoMachine = m_channels == 0 && obstacle.value(QLatin1String("gate")) == QLatin1String("free channel");
    if (!obstacle.isEmpty() && !isNoMachine) {
        reason = obstacle.value(QLatin1String("text")).toString();
        cure = obstacle.value(QLatin1String("cure")).toString();
    }
    m_rows.value(device.deviceId)->setReason(reason, cure);
}

void DevicePanel::showChannels()
{
    int shared = 0;
    for (const ExterDeviceInfo &device : qAsConst(m_known))
        shared += device.status != 0;
    m_free->setText(m_channels == 0 ? QString()
                                    : tr("%1 of %2 channels free").arg(qMax(0, m_channels - shared)).arg(m_channels));
}

void DevicePanel::showSpeeds()
{
    if (m_devices.shared().isEmpty() || !isVisible())
        return;
    for (const TransferSpeed &speed : m_speeds.look().value_or(QList<TransferSpeed>())) {
        const QString deviceId = speed.statistics.value(QLatin1String("deviceId")).toString();
        const auto bytes = qint64(speed.fromDevice + speed.toDevice);
        if (DeviceRow *const row = m_rows.value(deviceId))
            row->setSpeed(tr("%1/s").arg(QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat)));
    }
}

void DevicePanel::share(const QString &deviceId, bool share)
{
    const ExterDeviceInfo device = m_known.value(deviceId);
    if (share)
        m_devices.share(device);
    else
        m_devices.takeBack(device);
    refresh();
}

void DevicePanel::always(const QString &deviceId, bool always)
{
    const ExterDeviceInfo device = m_known.value(deviceId);
    const QString error = always ? RulesFile::allow(m_rulesFile, device) : RulesFile::forget(m_rulesFile, device);
    if (!error.isEmpty())
        notice(translatedText(error));
    readRules();
    const DeviceRule *const rule = m_rules.firstThatFits(traitsOf(device));
    const bool isAllowed = rule && rule->allow;
    if (error.isEmpty() && isAllowed != always)
        notice(tr("Your rule \"%1\" says otherwise; it stands in %2.").arg(rule ? rule->name : QString(), m_rulesFile));
    Q_EMIT rulesChanged(m_rules);
    refresh();
    if (always && isAllowed && device.status == 0 && !m_devices.isPending(deviceId))
        share(deviceId, true);
}

void DevicePanel::readRules()
{
    QString error;
    m_rules = RulesFile::read(m_rulesFile, error).value_or(DeviceRules());
    if (!error.isEmpty())
        notice(translatedText(error));
}

void DevicePanel::notice(const QString &text)
{
    m_notice->setText(escaped(text));
    m_noticeTimer.start(NoticeMilliseconds);
    QAccessibleEvent event(m_notice, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
}
