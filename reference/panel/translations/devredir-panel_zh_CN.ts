<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name>DevicePanel</name>
    <message>
        <source>No USB device is plugged in.</source>
        <translation>没有插入 USB 设备。</translation>
    </message>
    <message>
        <source>%1 was taken back: %2</source>
        <translation>%1 已收回：%2</translation>
    </message>
    <message>
        <source>%1 was pulled out.</source>
        <translation>%1 已拔出。</translation>
    </message>
    <message>
        <source>The virtual machine has let go of %1.</source>
        <translation>虚拟机已释放 %1。</translation>
    </message>
    <message>
        <source>try again</source>
        <translation>重试</translation>
    </message>
    <message>
        <source>%1 of %2 channels free</source>
        <translation>空闲通道：%1 / %2</translation>
    </message>
    <message>
        <source>%1/s</source>
        <translation>%1/秒</translation>
    </message>
    <message>
        <source>Your rule &quot;%1&quot; says otherwise; it stands in %2.</source>
        <translation>您的规则“%1”另有规定，见 %2。</translation>
    </message>
</context>
<context>
    <name>DeviceRow</name>
    <message>
        <source>Disk</source>
        <translation>磁盘</translation>
    </message>
    <message>
        <source>Camera</source>
        <translation>摄像头</translation>
    </message>
    <message>
        <source>Sound</source>
        <translation>音频</translation>
    </message>
    <message>
        <source>Serial adapter</source>
        <translation>串口适配器</translation>
    </message>
    <message>
        <source>Keyboard, mouse or the like</source>
        <translation>键盘、鼠标等</translation>
    </message>
    <message>
        <source>Printer</source>
        <translation>打印机</translation>
    </message>
    <message>
        <source>Card reader</source>
        <translation>读卡器</translation>
    </message>
    <message>
        <source>Radio</source>
        <translation>无线</translation>
    </message>
    <message>
        <source>USB device</source>
        <translation>USB 设备</translation>
    </message>
    <message>
        <source>Share</source>
        <translation>共享</translation>
    </message>
    <message>
        <source>Always</source>
        <translation>始终</translation>
    </message>
    <message>
        <source>Share this device whenever it is plugged in</source>
        <translation>每次插入时共享此设备</translation>
    </message>
    <message>
        <source>on this computer</source>
        <translation>在本机</translation>
    </message>
    <message>
        <source>on its way …</source>
        <translation>正在传递……</translation>
    </message>
    <message>
        <source>in the virtual machine</source>
        <translation>在虚拟机中</translation>
    </message>
    <message>
        <source>%1 at port %2, %3</source>
        <translation>%1，端口 %2，%3</translation>
    </message>
    <message>
        <source>Share %1</source>
        <translation>共享 %1</translation>
    </message>
    <message>
        <source>Always share %1</source>
        <translation>始终共享 %1</translation>
    </message>
    <message>
        <source>%1
What helps: %2</source>
        <translation>%1
解决办法：%2</translation>
    </message>
</context>
<context>
    <name>PanelWindow</name>
    <message>
        <source>Show</source>
        <translation>显示</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>退出</translation>
    </message>
    <message>
        <source>USB devices</source>
        <translation>USB 设备</translation>
    </message>
    <message>
        <source>&amp;Try again</source>
        <translation>重试(&amp;T)</translation>
    </message>
    <message>
        <source>Password</source>
        <translation>密码</translation>
    </message>
    <message>
        <source>Password of the virtual machine</source>
        <translation>虚拟机密码</translation>
    </message>
    <message>
        <source>Connecting to %1 …</source>
        <translation>正在连接 %1……</translation>
    </message>
    <message>
        <source>Connected to %1</source>
        <translation>已连接到 %1</translation>
    </message>
    <message>
        <source>The connection is lost: %1. Trying again in %2 s.</source>
        <translation>连接已断开：%1。%2 秒后重试。</translation>
    </message>
    <message>
        <source>No virtual machine was named.</source>
        <translation>未指定虚拟机。</translation>
    </message>
    <message>
        <source>No connection to %1: %2
%3</source>
        <translation>无法连接到 %1：%2
%3</translation>
    </message>
    <message>
        <source>Type the password here.</source>
        <translation>请在此输入密码。</translation>
    </message>
    <message>
        <source>%1 comes and goes, and is shared only if you ask for it.</source>
        <translation>%1 反复插拔，仅在您要求时才会共享。</translation>
    </message>
</context>
<context>
    <name>Texts</name>
    <message>
        <source>user %1 may not open %2; this udev rule helps: %3</source>
        <translation>用户 %1 无权打开 %2；此 udev 规则可以解决：%3</translation>
    </message>
    <message>
        <source>that rule in /etc/udev/rules.d, or the package devredir-component-usb-rules</source>
        <translation>将该规则写入 /etc/udev/rules.d，或安装软件包 devredir-component-usb-rules</translation>
    </message>
    <message>
        <source>the camera policy denies it</source>
        <translation>摄像头策略禁止共享</translation>
    </message>
    <message>
        <source>another policy, from whoever sets it</source>
        <translation>请策略的制定者更改策略</translation>
    </message>
    <message>
        <source>read-only: it would be writable in the virtual machine</source>
        <translation>只读：在虚拟机中它会变为可写</translation>
    </message>
    <message>
        <source>the write-protect switch on it, or &quot;readOnly&quot; in config.json</source>
        <translation>拨动它的开关，或修改 config.json 中的“readOnly”</translation>
    </message>
    <message>
        <source>mounted at %1; unmount it first</source>
        <translation>已挂载在 %1；请先卸载</translation>
    </message>
    <message>
        <source>no free channel</source>
        <translation>没有空闲通道</translation>
    </message>
    <message>
        <source>a virtual machine that is connected, with one more USB port</source>
        <translation>连接到虚拟机，并为其增加一个 USB 端口</translation>
    </message>
    <message>
        <source>already shared</source>
        <translation>已经共享</translation>
    </message>
    <message>
        <source>cannot open %1: %2</source>
        <translation>无法打开 %1：%2</translation>
    </message>
    <message>
        <source>it was pulled out</source>
        <translation>它已被拔出</translation>
    </message>
    <message>
        <source>no outcome within %1 seconds</source>
        <translation>%1 秒内没有结果</translation>
    </message>
    <message>
        <source>no such device</source>
        <translation>没有这个设备</translation>
    </message>
    <message>
        <source>the component refused</source>
        <translation>组件拒绝了</translation>
    </message>
    <message>
        <source>the virtual machine refuses it</source>
        <translation>虚拟机拒绝了它</translation>
    </message>
    <message>
        <source>Is the virtual machine running, is this its SPICE address, and may you connect to it?</source>
        <translation>虚拟机是否正在运行，这是它的 SPICE 地址吗，您是否有权连接？</translation>
    </message>
    <message>
        <source>Does the virtual machine let more than one client in?</source>
        <translation>虚拟机是否允许多个客户端连接？</translation>
    </message>
    <message>
        <source>no answer within %1 seconds</source>
        <translation>%1 秒内没有应答</translation>
    </message>
    <message>
        <source>nothing answers there</source>
        <translation>那里没有应答</translation>
    </message>
    <message>
        <source>the password is wrong or missing</source>
        <translation>密码错误或缺失</translation>
    </message>
    <message>
        <source>the server closed the connection</source>
        <translation>服务器关闭了连接</translation>
    </message>
    <message>
        <source>the server&apos;s certificate is not trusted</source>
        <translation>服务器的证书不受信任</translation>
    </message>
    <message>
        <source>what answers is no SPICE server, or refuses</source>
        <translation>应答的不是 SPICE 服务器，或它拒绝了连接</translation>
    </message>
    <message>
        <source>the component is not loaded: %1. What helps: install devredir-component-usb</source>
        <translation>组件未加载：%1。解决方法：安装 devredir-component-usb</translation>
    </message>
    <message>
        <source>the component does not start: is %1 there, and can it be read? The log has the reason</source>
        <translation>组件无法启动：%1 是否存在且可读？原因见日志</translation>
    </message>
    <message>
        <source>in use as %1</source>
        <translation>正被用作 %1</translation>
    </message>
    <message>
        <source>lock, stop or unmount that: udisksctl lock, vgchange -an, mdadm --stop, swapoff, umount</source>
        <translation>将其锁定、停止或卸载：udisksctl lock、vgchange -an、mdadm --stop、swapoff、umount</translation>
    </message>
    <message>
        <source>its alternate settings are not numbered one after the other</source>
        <translation>其备用设置的编号不连续</translation>
    </message>
    <message>
        <source>the device cannot be taken from the local system (usbredir result %1)</source>
        <translation>无法从本地系统取走该设备（usbredir 结果 %1）</translation>
    </message>
    <message>
        <source>the component is stopping</source>
        <translation>组件正在停止</translation>
    </message>
    <message>
        <source>--spice-ca-file names who has signed it, --spice-host-subject whose it is</source>
        <translation>--spice-ca-file 指明签发者，--spice-host-subject 指明证书的持有者</translation>
    </message>
    <message>
        <source>%1 cannot be read: %2. Mend it there</source>
        <translation>无法读取 %1：%2。请在那里改正</translation>
    </message>
    <message>
        <source>%1 cannot be written: %2. Make it writable for you</source>
        <translation>无法写入 %1：%2。请使您可以写入它</translation>
    </message>
    <message>
        <source>%1: [%2] lacks action=allow or action=deny</source>
        <translation>%1：[%2] 缺少 action=allow 或 action=deny</translation>
    </message>
</context>
</TS>
