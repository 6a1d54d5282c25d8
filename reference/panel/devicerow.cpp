// SPDX-License-Identifier: LGPL-2.1-or-later
#include "devicerow.h"

#include "reference/client/escaped.h"
#include "reference/client/translatedtext.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QGridLayout>
#include <QLabel>

#include <algorithm>
#include <iterator>

namespace {

struct Kind
{
    const char *redirector; ///< null: any
    const char *usbClass; ///< null: any
    const char *text;
};

constexpr Kind Kinds[] = {
    {"DISKRDR", nullptr, QT_TRANSLATE_NOOP("DeviceRow", "Disk")},
    {"CAMRDR", nullptr, QT_TRANSLATE_NOOP("DeviceRow", "Camera")},
    {nullptr, "01", QT_TRANSLATE_NOOP("DeviceRow", "Sound")},
    {nullptr, "02", QT_TRANSLATE_NOOP("DeviceRow", "Serial adapter")},
    {nullptr, "03", QT_TRANSLATE_NOOP("DeviceRow", "Keyboard, mouse or the like")},
    {nullptr, "07", QT_TRANSLATE_NOOP("DeviceRow", "Printer")},
    {nullptr, "0B", QT_TRANSLATE_NOOP("DeviceRow", "Card reader")},
    {nullptr, "E0", QT_TRANSLATE_NOOP("DeviceRow", "Radio")},
    {nullptr, nullptr, QT_TRANSLATE_NOOP("DeviceRow", "USB device")},
};

QString kindOf(const ExterDeviceInfo &device)
{
    const auto isThat = [](const char *expected, const QString &text) {
        return !expected || text.compare(QLatin1String(expected), Qt::CaseInsensitive) == 0;
    };
    const auto *const kind = std::find_if(std::begin(Kinds), std::end(Kinds), [&](const Kind &one) {
        return isThat(one.redirector, device.rdrName) && isThat(one.usbClass, device.deviceClass);
    });
    return QCoreApplication::translate("DeviceRow", kind->text);
}

} // namespace

DeviceRow::DeviceRow(QWidget *parent)
    : QWidget(parent), m_name(new QLabel), m_place(new QLabel), m_speed(new QLabel), m_reason(new QLabel),
      m_share(new QCheckBox(tr("Share"))), m_always(new QCheckBox(tr("Always")))
{
    QFont bold = m_name->font();
    bold.setBold(true);
    m_name->setFont(bold);
    m_reason->setWordWrap(true);
    m_reason->setTextInteractionFlags(Qt::TextSelectableByMouse); // a cure may be a line to copy
    for (QLabel *label : {m_name, m_place, m_speed, m_reason})
        label->setTextFormat(Qt::PlainText); // names come from devices
    m_always->setToolTip(tr("Share this device whenever it is plugged in"));

    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setColumnStretch(0, 1);
    layout->addWidget(m_name, 0, 0);
    layout->addWidget(m_speed, 0, 1);
    layout->addWidget(m_share, 0, 2);
    layout->addWidget(m_place, 1, 0, 1, 2);
    layout->addWidget(m_always, 1, 2);
    layout->addWidget(m_reason, 2, 0, 1, 3);

    connect(m_share, &QCheckBox::clicked, this, &DeviceRow::shareAsked);
    connect(m_always, &QCheckBox::clicked, this, &DeviceRow::alwaysAsked);
}

void DeviceRow::show(const ExterDeviceInfo &device, State state, bool always)
{
    const QString name = escaped(device.deviceName.isEmpty() ? device.deviceId : device.deviceName);
    const QString states[] = {tr("on this computer"), tr("on its way …"), tr("in the virtual machine")};
    m_name->setText(name);
    m_place->setText(tr("%1 at port %2, %3").arg(kindOf(device), escaped(device.devicePosition), states[int(state)]));
    m_share->setChecked(state == State::Shared);
    const bool isFocused = m_share->hasFocus() || hasFocus(); // kept meanwhile, or Qt hands it to what stands next
    m_share->setEnabled(state != State::OnItsWay);
    if (isFocused)
        (m_share->isEnabled() ? m_share : static_cast<QWidget *>(this))->setFocus();
    m_share->setAccessibleName(tr("Share %1").arg(name));
    m_share->setAccessibleDescription(m_place->text());
    m_always->setChecked(always);
    m_always->setAccessibleName(tr("Always share %1").arg(name));
    setObjectName(device.deviceId);
}

void DeviceRow::setReason(const QString &reason, const QString &cure)
{
    m_reason->setText(
        reason.isEmpty()
            ? QString()
            : tr("%1\nWhat helps: %2").arg(escaped(translatedText(reason)), escaped(translatedText(cure))));
    m_reason->setVisible(!reason.isEmpty());
}
