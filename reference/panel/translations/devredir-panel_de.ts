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
    <message>
        <source>%1 comes and goes, and is shared only if you ask for it.</source>
        <translation>%1 kommt und geht, und wird nur freigegeben, wenn Sie es verlangen.</translation>
    </message>
</context>
<context>
    <name>Texts</name>
    <message>
        <source>user %1 may not open %2; this udev rule helps: %3</source>
        <translation>Benutzer %1 darf %2 nicht öffnen; diese udev-Regel hilft: %3</translation>
    </message>
    <message>
        <source>that rule in /etc/udev/rules.d, or the package devredir-component-usb-rules</source>
        <translation>diese Regel in /etc/udev/rules.d, oder das Paket devredir-component-usb-rules</translation>
    </message>
    <message>
        <source>the camera policy denies it</source>
        <translation>die Kamera-Richtlinie verbietet es</translation>
    </message>
    <message>
        <source>another policy, from whoever sets it</source>
        <translation>eine andere Richtlinie, von dem, der sie vorgibt</translation>
    </message>
    <message>
        <source>read-only: it would be writable in the virtual machine</source>
        <translation>nur lesbar: in der virtuellen Maschine wäre es beschreibbar</translation>
    </message>
    <message>
        <source>the write-protect switch on it, or &quot;readOnly&quot; in config.json</source>
        <translation>der Schreibschutzschalter daran, oder „readOnly“ in config.json</translation>
    </message>
    <message>
        <source>mounted at %1; unmount it first</source>
        <translation>eingehängt in %1; erst aushängen</translation>
    </message>
    <message>
        <source>no free channel</source>
        <translation>kein freier Kanal</translation>
    </message>
    <message>
        <source>a virtual machine that is connected, with one more USB port</source>
        <translation>eine verbundene virtuelle Maschine mit einem weiteren USB-Anschluss</translation>
    </message>
    <message>
        <source>already shared</source>
        <translation>schon freigegeben</translation>
    </message>
    <message>
        <source>cannot open %1: %2</source>
        <translation>%1 lässt sich nicht öffnen: %2</translation>
    </message>
    <message>
        <source>it was pulled out</source>
        <translation>es wurde abgezogen</translation>
    </message>
    <message>
        <source>no outcome within %1 seconds</source>
        <translation>kein Ergebnis nach %1 Sekunden</translation>
    </message>
    <message>
        <source>no such device</source>
        <translation>kein solches Gerät</translation>
    </message>
    <message>
        <source>the component refused</source>
        <translation>die Komponente lehnt es ab</translation>
    </message>
    <message>
        <source>the virtual machine refuses it</source>
        <translation>die virtuelle Maschine lehnt es ab</translation>
    </message>
    <message>
        <source>Is the virtual machine running, is this its SPICE address, and may you connect to it?</source>
        <translation>Läuft die virtuelle Maschine, ist das ihre SPICE-Adresse, und dürfen Sie sich mit ihr verbinden?</translation>
    </message>
    <message>
        <source>Does the virtual machine let more than one client in?</source>
        <translation>Lässt die virtuelle Maschine mehr als einen Client zu?</translation>
    </message>
    <message>
        <source>no answer within %1 seconds</source>
        <translation>keine Antwort nach %1 Sekunden</translation>
    </message>
    <message>
        <source>nothing answers there</source>
        <translation>dort antwortet nichts</translation>
    </message>
    <message>
        <source>the password is wrong or missing</source>
        <translation>das Passwort ist falsch oder fehlt</translation>
    </message>
    <message>
        <source>the server closed the connection</source>
        <translation>der Server hat die Verbindung geschlossen</translation>
    </message>
    <message>
        <source>the server&apos;s certificate is not trusted</source>
        <translation>dem Zertifikat des Servers wird nicht vertraut</translation>
    </message>
    <message>
        <source>what answers is no SPICE server, or refuses</source>
        <translation>was dort antwortet, ist kein SPICE-Server oder lehnt ab</translation>
    </message>
    <message>
        <source>the component is not loaded: %1. What helps: install devredir-component-usb</source>
        <translation>die Komponente ist nicht geladen: %1. Was hilft: devredir-component-usb installieren</translation>
    </message>
    <message>
        <source>the component does not start: is %1 there, and can it be read? The log has the reason</source>
        <translation>die Komponente startet nicht: gibt es %1, und ist es lesbar? Der Grund steht im Protokoll</translation>
    </message>
    <message>
        <source>in use as %1</source>
        <translation>in Gebrauch als %1</translation>
    </message>
    <message>
        <source>lock, stop or unmount that: udisksctl lock, vgchange -an, mdadm --stop, swapoff, umount</source>
        <translation>das sperren, anhalten oder aushängen: udisksctl lock, vgchange -an, mdadm --stop, swapoff, umount</translation>
    </message>
    <message>
        <source>its alternate settings are not numbered one after the other</source>
        <translation>seine Schnittstelleneinstellungen sind nicht fortlaufend nummeriert</translation>
    </message>
    <message>
        <source>the device cannot be taken from the local system (usbredir result %1)</source>
        <translation>das Gerät lässt sich dem lokalen System nicht wegnehmen (usbredir-Ergebnis %1)</translation>
    </message>
    <message>
        <source>the component is stopping</source>
        <translation>die Komponente wird gerade beendet</translation>
    </message>
    <message>
        <source>--spice-ca-file names who has signed it, --spice-host-subject whose it is</source>
        <translation>--spice-ca-file nennt, wer es unterschrieben hat, --spice-host-subject, wem es gehört</translation>
    </message>
    <message>
        <source>%1 cannot be read: %2. Mend it there</source>
        <translation>%1 lässt sich nicht lesen: %2. Bitte dort berichtigen</translation>
    </message>
    <message>
        <source>%1 cannot be written: %2. Make it writable for you</source>
        <translation>%1 lässt sich nicht schreiben: %2. Bitte für sich beschreibbar machen</translation>
    </message>
    <message>
        <source>%1: [%2] lacks action=allow or action=deny</source>
        <translation>%1: [%2] fehlt action=allow oder action=deny</translation>
    </message>
</context>
</TS>
