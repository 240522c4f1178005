<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>App::MainDashboardView</name>
    <message>
        <source>Single Sign-On</source>
        <translation>Single Sign-On</translation>
    </message>
    <message>
        <source>Secure authentication for enterprise apps</source>
        <translation>Sichere Anmeldung für Firmen-Apps</translation>
    </message>
    <message>
        <source>Remote Casting</source>
        <translation>Remote-Streaming</translation>
    </message>
    <message>
        <source>Cast content to external displays</source>
        <translation>Inhalte auf externen Displays anzeigen</translation>
    </message>
    <message>
        <source>Notifications</source>
        <translation>Mitteilungen</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization</source>
        <translation>Mitteilungen Ihrer Organisation verwalten</translation>
    </message>
</context>
<context>
    <name>App::NotificationsView</name>
    <message>
        <source>Notifications</source>
        <translation>Mitteilungen</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization. Coming soon.</source>
        <translation>Mitteilungen Ihrer Organisation anzeigen und verwalten. Demnächst verfügbar.</translation>
    </message>
</context>
<context>
    <name>App::RemoteCastingView</name>
    <message>
        <source>Remote Casting</source>
        <translation>Remote-Streaming</translation>
    </message>
    <message>
        <source>Cast content to external displays. Coming soon.</source>
        <translation>Inhalte auf externen Displays anzeigen. Demnächst verfügbar.</translation>
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
        <translation>Sichere Anmeldung für Firmen-Apps. Die Quorvane SSO-Erweiterung übernimmt die Anmeldung, wenn verwaltete Apps eine Authentifizierung anfordern.</translation>
    </message>
</context>
<context>
    <name>Device</name>
    <message>
        <source>Open</source>
        <translation>Öffnen</translation>
    </message>
    <message>
        <source>Messages from your organization about this device</source>
        <translation>Nachrichten Ihrer Organisation zu diesem Gerät</translation>
    </message>
    <message>
        <source>Turned off</source>
        <translation>Deaktiviert</translation>
    </message>
    <message>
        <source>This device itself</source>
        <translation>Dieses Gerät selbst</translation>
    </message>
</context>
<context>
    <name>FeatureCard</name>
    <message>
        <source>Tap to view details</source>
        <translation>Für Details tippen</translation>
    </message>
    <message>
        <source>Coming Soon</source>
        <translation>Demnächst</translation>
    </message>
</context>
<context>
    <name>GetStartedButton</name>
    <message>
        <source>Get Started</source>
        <translation>Los geht’s</translation>
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
        <translation>Übersicht der Geräteverwaltung</translation>
    </message>
</context>
<context>
    <name>NavigationDestination</name>
    <message>
        <source>Back</source>
        <translation>Zurück</translation>
    </message>
</context>
<context>
    <name>PermissionPanel</name>
    <message>
        <source>“%1” Would Like to Send You Notifications</source>
        <translation>„%1“ möchte Ihnen Mitteilungen senden</translation>
    </message>
    <message>
        <source>Notifications may include alerts, sounds, and icon badges.</source>
        <translation>Mitteilungen können Hinweise, Töne und Kennzeichen am App-Symbol umfassen.</translation>
    </message>
    <message>
        <source>Don’t Allow</source>
        <translation>Nicht erlauben</translation>
    </message>
    <message>
        <source>Allow</source>
        <translation>Erlauben</translation>
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
        <translation>Fertig</translation>
    </message>
    <message>
        <source>Allow Notifications</source>
        <translation>Mitteilungen erlauben</translation>
    </message>
    <message>
        <source>Shown by</source>
        <translation>Anzeige</translation>
    </message>
    <message>
        <source>In this window</source>
        <translation>In diesem Fenster</translation>
    </message>
    <message>
        <source>Delivered by</source>
        <translation>Zustellung</translation>
    </message>
</context>
<context>
    <name>WarningStrip</name>
    <message>
        <source>Notifications are off</source>
        <translation>Mitteilungen sind deaktiviert</translation>
    </message>
    <message>
        <source>Open Settings</source>
        <translation>Einstellungen öffnen</translation>
    </message>
</context>
<context>
    <name>WelcomeView</name>
    <message>
        <source>Welcome to</source>
        <translation>Willkommen bei</translation>
    </message>
    <message>
        <source>Quorvane UEM</source>
        <translation>Quorvane UEM</translation>
    </message>
    <message>
        <source>Your comprehensive Unified Endpoint Management solution</source>
        <translation>Ihre umfassende Lösung für Unified Endpoint Management</translation>
    </message>
    <message>
        <source>Secure, manage, and stay in control of your work device with built-in enterprise protection.</source>
        <translation>Schützen und verwalten Sie Ihr Arbeitsgerät und behalten Sie die Kontrolle – mit integriertem Schutz für Unternehmen.</translation>
    </message>
</context>
</TS>
