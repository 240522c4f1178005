<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es" sourcelanguage="en">
<context>
    <name>App::MainDashboardView</name>
    <message>
        <source>Single Sign-On</source>
        <translation>Single Sign-On</translation>
    </message>
    <message>
        <source>Secure authentication for enterprise apps</source>
        <translation>Acceso seguro a apps empresariales</translation>
    </message>
    <message>
        <source>Remote Casting</source>
        <translation>Emisión remota</translation>
    </message>
    <message>
        <source>Cast content to external displays</source>
        <translation>Emita contenido en pantallas externas</translation>
    </message>
    <message>
        <source>Notifications</source>
        <translation>Notificaciones</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization</source>
        <translation>Notificaciones de su organización</translation>
    </message>
</context>
<context>
    <name>App::NotificationsView</name>
    <message>
        <source>Notifications</source>
        <translation>Notificaciones</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization. Coming soon.</source>
        <translation>Vea y gestione las notificaciones de su organización. Próximamente.</translation>
    </message>
</context>
<context>
    <name>App::RemoteCastingView</name>
    <message>
        <source>Remote Casting</source>
        <translation>Emisión remota</translation>
    </message>
    <message>
        <source>Cast content to external displays. Coming soon.</source>
        <translation>Emita contenido en pantallas externas. Próximamente.</translation>
    </message>
</context>
<context>
    <name>App::SSODetailView</name>
    <message>
        <source>Single Sign-On</source>
        <translation>Single Sign-On</translation>
    </message>
    <message>
        <source>Secure authentication for enterprise apps. Sign-in is handled by the Quorvane SSO extension when managed apps request authentication.</source>
        <translation>Acceso seguro a apps empresariales. La extensión Quorvane SSO se encarga del inicio de sesión cuando las apps gestionadas solicitan autenticación.</translation>
    </message>
</context>
<context>
    <name>Device</name>
    <message>
        <source>Open</source>
        <translation>Abrir</translation>
    </message>
    <message>
        <source>Messages from your organization about this device</source>
        <translation>Mensajes de su organización sobre este dispositivo</translation>
    </message>
    <message>
        <source>Turned off</source>
        <translation>Desactivada</translation>
    </message>
    <message>
        <source>This device itself</source>
        <translation>Este mismo dispositivo</translation>
    </message>
</context>
<context>
    <name>FeatureCard</name>
    <message>
        <source>Tap to view details</source>
        <translation>Ver detalles</translation>
    </message>
    <message>
        <source>Coming Soon</source>
        <translation>Próximamente</translation>
    </message>
</context>
<context>
    <name>GetStartedButton</name>
    <message>
        <source>Get Started</source>
        <translation>Comenzar</translation>
    </message>
</context>
<context>
    <name>Logo</name>
    <message>
        <source>Quorvane UEM</source>
        <translation>Quorvane UEM</translation>
    </message>
</context>
<context>
    <name>MainDashboardView</name>
    <message>
        <source>Quorvane UEM</source>
        <translation>Quorvane UEM</translation>
    </message>
    <message>
        <source>Device Management Dashboard</source>
        <translation>Panel de gestión de dispositivos</translation>
    </message>
</context>
<context>
    <name>NavigationDestination</name>
    <message>
        <source>Back</source>
        <translation>Atrás</translation>
    </message>
</context>
<context>
    <name>PermissionPanel</name>
    <message>
        <source>“%1” Would Like to Send You Notifications</source>
        <translation>«%1» quiere enviarle notificaciones</translation>
    </message>
    <message>
        <source>Notifications may include alerts, sounds, and icon badges.</source>
        <translation>Las notificaciones pueden incluir alertas, sonidos y globos en los iconos.</translation>
    </message>
    <message>
        <source>Don’t Allow</source>
        <translation>No permitir</translation>
    </message>
    <message>
        <source>Allow</source>
        <translation>Permitir</translation>
    </message>
</context>
<context>
    <name>SettingsRow</name>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
</context>
<context>
    <name>SettingsSheet</name>
    <message>
        <source>Done</source>
        <translation>Listo</translation>
    </message>
    <message>
        <source>Allow Notifications</source>
        <translation>Permitir notificaciones</translation>
    </message>
    <message>
        <source>Shown by</source>
        <translation>Visualización</translation>
    </message>
    <message>
        <source>In this window</source>
        <translation>En esta ventana</translation>
    </message>
    <message>
        <source>Delivered by</source>
        <translation>Entrega</translation>
    </message>
</context>
<context>
    <name>WarningStrip</name>
    <message>
        <source>Notifications are off</source>
        <translation>Las notificaciones están desactivadas</translation>
    </message>
    <message>
        <source>Open Settings</source>
        <translation>Abrir Ajustes</translation>
    </message>
</context>
<context>
    <name>WelcomeView</name>
    <message>
        <source>Welcome to</source>
        <translation>Le damos la bienvenida a</translation>
    </message>
    <message>
        <source>Quorvane UEM</source>
        <translation>Quorvane UEM</translation>
    </message>
    <message>
        <source>Your comprehensive Unified Endpoint Management solution</source>
        <translation>Su solución integral de gestión unificada de dispositivos</translation>
    </message>
    <message>
        <source>Secure, manage, and stay in control of your work device with built-in enterprise protection.</source>
        <translation>Proteja y gestione su dispositivo de trabajo y mantenga el control, con protección empresarial integrada.</translation>
    </message>
</context>
</TS>
