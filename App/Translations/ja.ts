<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ja" sourcelanguage="en">
<context>
    <name>App::MainDashboardView</name>
    <message>
        <source>Single Sign-On</source>
        <translation>Single Sign-On</translation>
    </message>
    <message>
        <source>Secure authentication for enterprise apps</source>
        <translation>エンタープライズアプリの安全な認証</translation>
    </message>
    <message>
        <source>Remote Casting</source>
        <translation>リモートキャスト</translation>
    </message>
    <message>
        <source>Cast content to external displays</source>
        <translation>外部画面にキャスト</translation>
    </message>
    <message>
        <source>Notifications</source>
        <translation>通知</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization</source>
        <translation>組織からの通知</translation>
    </message>
</context>
<context>
    <name>App::NotificationsView</name>
    <message>
        <source>Notifications</source>
        <translation>通知</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization. Coming soon.</source>
        <translation>組織からの通知を表示および管理。近日公開。</translation>
    </message>
</context>
<context>
    <name>App::RemoteCastingView</name>
    <message>
        <source>Remote Casting</source>
        <translation>リモートキャスト</translation>
    </message>
    <message>
        <source>Cast content to external displays. Coming soon.</source>
        <translation>外部画面にコンテンツをキャスト。近日公開。</translation>
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
        <translation>エンタープライズアプリの安全な認証。管理対象アプリが認証を要求すると、Quorvane SSO 機能拡張がサインインを処理します。</translation>
    </message>
</context>
<context>
    <name>Device</name>
    <message>
        <source>Open</source>
        <translation>開く</translation>
    </message>
    <message>
        <source>Messages from your organization about this device</source>
        <translation>このデバイスに関する組織からのメッセージ</translation>
    </message>
    <message>
        <source>Turned off</source>
        <translation>オフ</translation>
    </message>
    <message>
        <source>This device itself</source>
        <translation>このデバイス自体</translation>
    </message>
</context>
<context>
    <name>FeatureCard</name>
    <message>
        <source>Tap to view details</source>
        <translation>タップして詳細を表示</translation>
    </message>
    <message>
        <source>Coming Soon</source>
        <translation>近日公開</translation>
    </message>
</context>
<context>
    <name>GetStartedButton</name>
    <message>
        <source>Get Started</source>
        <translation>始める</translation>
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
        <translation>デバイス管理ダッシュボード</translation>
    </message>
</context>
<context>
    <name>NavigationDestination</name>
    <message>
        <source>Back</source>
        <translation>戻る</translation>
    </message>
</context>
<context>
    <name>PermissionPanel</name>
    <message>
        <source>“%1” Would Like to Send You Notifications</source>
        <translation>「%1」が通知の送信を求めています</translation>
    </message>
    <message>
        <source>Notifications may include alerts, sounds, and icon badges.</source>
        <translation>通知には、アラート、サウンド、アイコンのバッジが含まれることがあります。</translation>
    </message>
    <message>
        <source>Don’t Allow</source>
        <translation>許可しない</translation>
    </message>
    <message>
        <source>Allow</source>
        <translation>許可</translation>
    </message>
</context>
<context>
    <name>SettingsRow</name>
    <message>
        <source>%1: %2</source>
        <translation>%1：%2</translation>
    </message>
</context>
<context>
    <name>SettingsSheet</name>
    <message>
        <source>Done</source>
        <translation>完了</translation>
    </message>
    <message>
        <source>Allow Notifications</source>
        <translation>通知を許可</translation>
    </message>
    <message>
        <source>Shown by</source>
        <translation>表示</translation>
    </message>
    <message>
        <source>In this window</source>
        <translation>このウィンドウ内</translation>
    </message>
    <message>
        <source>Delivered by</source>
        <translation>配信</translation>
    </message>
</context>
<context>
    <name>WarningStrip</name>
    <message>
        <source>Notifications are off</source>
        <translation>通知はオフです</translation>
    </message>
    <message>
        <source>Open Settings</source>
        <translation>設定を開く</translation>
    </message>
</context>
<context>
    <name>WelcomeView</name>
    <message>
        <source>Welcome to</source>
        <translation>ようこそ</translation>
    </message>
    <message>
        <source>Quorvane UEM</source>
        <translation>Quorvane UEM</translation>
    </message>
    <message>
        <source>Your comprehensive Unified Endpoint Management solution</source>
        <translation>包括的な統合エンドポイント管理ソリューション</translation>
    </message>
    <message>
        <source>Secure, manage, and stay in control of your work device with built-in enterprise protection.</source>
        <translation>エンタープライズ向けの保護機能で業務用デバイスを守り、管理し、いつでもコントロールできます。</translation>
    </message>
</context>
</TS>
