<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr" sourcelanguage="en">
<context>
    <name>App::MainDashboardView</name>
    <message>
        <source>Single Sign-On</source>
        <translation>Single Sign-On</translation>
    </message>
    <message>
        <source>Secure authentication for enterprise apps</source>
        <translation>Connexion sécurisée aux apps d’entreprise</translation>
    </message>
    <message>
        <source>Remote Casting</source>
        <translation>Diffusion d’écran</translation>
    </message>
    <message>
        <source>Cast content to external displays</source>
        <translation>Diffuser sur des écrans externes</translation>
    </message>
    <message>
        <source>Notifications</source>
        <translation>Notifications</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization</source>
        <translation>Notifications de votre organisation</translation>
    </message>
</context>
<context>
    <name>App::NotificationsView</name>
    <message>
        <source>Notifications</source>
        <translation>Notifications</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization. Coming soon.</source>
        <translation>Afficher et gérer les notifications de votre organisation. Bientôt disponible.</translation>
    </message>
</context>
<context>
    <name>App::RemoteCastingView</name>
    <message>
        <source>Remote Casting</source>
        <translation>Diffusion d’écran</translation>
    </message>
    <message>
        <source>Cast content to external displays. Coming soon.</source>
        <translation>Diffuser du contenu sur des écrans externes. Bientôt disponible.</translation>
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
        <translation>Connexion sécurisée aux apps d’entreprise. L’extension Quorvane SSO se charge de la connexion lorsque des apps gérées demandent une authentification.</translation>
    </message>
</context>
<context>
    <name>Device</name>
    <message>
        <source>Open</source>
        <translation>Ouvrir</translation>
    </message>
    <message>
        <source>Messages from your organization about this device</source>
        <translation>Messages de votre organisation concernant cet appareil</translation>
    </message>
    <message>
        <source>Turned off</source>
        <translation>Désactivée</translation>
    </message>
    <message>
        <source>This device itself</source>
        <translation>Cet appareil lui-même</translation>
    </message>
</context>
<context>
    <name>FeatureCard</name>
    <message>
        <source>Tap to view details</source>
        <translation>Voir les détails</translation>
    </message>
    <message>
        <source>Coming Soon</source>
        <translation>Bientôt disponible</translation>
    </message>
</context>
<context>
    <name>GetStartedButton</name>
    <message>
        <source>Get Started</source>
        <translation>Commencer</translation>
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
        <translation>Tableau de bord de gestion des appareils</translation>
    </message>
</context>
<context>
    <name>NavigationDestination</name>
    <message>
        <source>Back</source>
        <translation>Retour</translation>
    </message>
</context>
<context>
    <name>PermissionPanel</name>
    <message>
        <source>“%1” Would Like to Send You Notifications</source>
        <translation>« %1 » souhaite vous envoyer des notifications</translation>
    </message>
    <message>
        <source>Notifications may include alerts, sounds, and icon badges.</source>
        <translation>Les notifications peuvent inclure des alertes, des sons et des pastilles d’icône.</translation>
    </message>
    <message>
        <source>Don’t Allow</source>
        <translation>Ne pas autoriser</translation>
    </message>
    <message>
        <source>Allow</source>
        <translation>Autoriser</translation>
    </message>
</context>
<context>
    <name>SettingsRow</name>
    <message>
        <source>%1: %2</source>
        <translation>%1 : %2</translation>
    </message>
</context>
<context>
    <name>SettingsSheet</name>
    <message>
        <source>Done</source>
        <translation>Terminé</translation>
    </message>
    <message>
        <source>Allow Notifications</source>
        <translation>Autoriser les notifications</translation>
    </message>
    <message>
        <source>Shown by</source>
        <translation>Affichage</translation>
    </message>
    <message>
        <source>In this window</source>
        <translation>Dans cette fenêtre</translation>
    </message>
    <message>
        <source>Delivered by</source>
        <translation>Distribution</translation>
    </message>
</context>
<context>
    <name>WarningStrip</name>
    <message>
        <source>Notifications are off</source>
        <translation>Les notifications sont désactivées</translation>
    </message>
    <message>
        <source>Open Settings</source>
        <translation>Ouvrir les réglages</translation>
    </message>
</context>
<context>
    <name>WelcomeView</name>
    <message>
        <source>Welcome to</source>
        <translation>Bienvenue dans</translation>
    </message>
    <message>
        <source>Quorvane UEM</source>
        <translation>Quorvane UEM</translation>
    </message>
    <message>
        <source>Your comprehensive Unified Endpoint Management solution</source>
        <translation>Votre solution complète de gestion unifiée des terminaux</translation>
    </message>
    <message>
        <source>Secure, manage, and stay in control of your work device with built-in enterprise protection.</source>
        <translation>Sécurisez et gérez votre appareil professionnel et gardez-en le contrôle, grâce à une protection d’entreprise intégrée.</translation>
    </message>
</context>
</TS>
