<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>DevicePanel</name>
    <message>
        <source>No USB device is plugged in.</source>
        <translation>Kein USB-Gerät ist eingesteckt.</translation>
    </message>
    <message>
        <source>%1 was taken back: %2</source>
        <translation>%1 wurde zurückgeholt: %2</translation>
    </message>
    <message>
        <source>%1 was pulled out.</source>
        <translation>%1 wurde abgezogen.</translation>
    </message>
    <message>
        <source>The virtual machine has let go of %1.</source>
        <translation>Die virtuelle Maschine hat %1 losgelassen.</translation>
    </message>
    <message>
        <source>try again</source>
        <translation>es noch einmal versuchen</translation>
    </message>
    <message>
        <source>%1 of %2 channels free</source>
        <translation>%1 von %2 Kanälen frei</translation>
    </message>
    <message>
        <source>%1/s</source>
        <translation>%1/s</translation>
    </message>
    <message>
        <source>Your rule &quot;%1&quot; says otherwise; it stands in %2.</source>
        <translation>Ihre Regel „%1“ bestimmt es anders; sie steht in %2.</translation>
    </message>
</context>
<context>
    <name>DeviceRow</name>
    <message>
        <source>Disk</source>
        <translation>Datenträger</translation>
    </message>
    <message>
        <source>Camera</source>
        <translation>Kamera</translation>
    </message>
    <message>
        <source>Sound</source>
        <translation>Ton</translation>
    </message>
    <message>
        <source>Serial adapter</source>
        <translation>Serieller Adapter</translation>
    </message>
    <message>
        <source>Keyboard, mouse or the like</source>
        <translation>Tastatur, Maus oder Ähnliches</translation>
    </message>
    <message>
        <source>Printer</source>
        <translation>Drucker</translation>
    </message>
    <message>
        <source>Card reader</source>
        <translation>Kartenleser</translation>
    </message>
    <message>
        <source>Radio</source>
        <translation>Funk</translation>
    </message>
    <message>
        <source>USB device</source>
        <translation>USB-Gerät</translation>
    </message>
    <message>
        <source>Share</source>
        <translation>Freigeben</translation>
    </message>
    <message>
        <source>Always</source>
        <translation>Immer</translation>
    </message>
    <message>
        <source>Share this device whenever it is plugged in</source>
        <translation>Dieses Gerät bei jedem Einstecken freigeben</translation>
    </message>
    <message>
        <source>on this computer</source>
        <translation>an diesem Computer</translation>
    </message>
    <message>
        <source>on its way …</source>
        <translation>unterwegs …</translation>
    </message>
    <message>
        <source>in the virtual machine</source>
        <translation>in der virtuellen Maschine</translation>
    </message>
    <message>
        <source>%1 at port %2, %3</source>
        <translation>%1 an Anschluss %2, %3</translation>
    </message>
    <message>
        <source>Share %1</source>
        <translation>%1 freigeben</translation>
    </message>
    <message>
        <source>Always share %1</source>
        <translation>%1 immer freigeben</translation>
    </message>
    <message>
        <source>%1
What helps: %2</source>
        <translation>%1
Was hilft: %2</translation>
    </message>
</context>
<context>
    <name>PanelWindow</name>
    <message>
        <source>Show</source>
        <translation>Zeigen</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>USB devices</source>
        <translation>USB-Geräte</translation>
    </message>
    <message>
        <source>&amp;Try again</source>
        <translation>&amp;Noch einmal</translation>
    </message>
    <message>
        <source>Password</source>
        <translation>Passwort</translation>
    </message>
    <message>
        <source>Password of the virtual machine</source>
        <translation>Passwort der virtuellen Maschine</translation>
    </message>
    <message>
        <source>Connecting to %1 …</source>
        <translation>Verbindung mit %1 …</translation>
    </message>
    <message>
        <source>Connected to %1</source>
        <translation>Verbunden mit %1</translation>
    </message>
    <message>
        <source>The connection is lost: %1. Trying again in %2 s.</source>
        <translation>Die Verbindung ist verloren: %1. Nächster Versuch in %2 s.</translation>
    </message>
    <message>
        <source>No virtual machine was named.</source>
        <translation>Es wurde keine virtuelle Maschine genannt.</translation>
    </message>
    <message>
        <source>No connection to %1: %2
%3</source>
        <translation>Keine Verbindung mit %1: %2
%3</translation>
    </message>
    <message>
        <source>Type the password here.</source>
        <translation>Geben Sie hier das Passwort ein.</translation>
    </message>
</context>
</TS>
