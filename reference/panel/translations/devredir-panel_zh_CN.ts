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
</context>
</TS>
