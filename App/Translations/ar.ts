<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ar" sourcelanguage="en">
<context>
    <name>App::MainDashboardView</name>
    <message>
        <source>Single Sign-On</source>
        <translation>Single Sign-On</translation>
    </message>
    <message>
        <source>Secure authentication for enterprise apps</source>
        <translation>مصادقة آمنة لتطبيقات المؤسسة</translation>
    </message>
    <message>
        <source>Remote Casting</source>
        <translation>البث عن بُعد</translation>
    </message>
    <message>
        <source>Cast content to external displays</source>
        <translation>البث على شاشات خارجية</translation>
    </message>
    <message>
        <source>Notifications</source>
        <translation>الإشعارات</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization</source>
        <translation>إشعارات من مؤسستك</translation>
    </message>
</context>
<context>
    <name>App::NotificationsView</name>
    <message>
        <source>Notifications</source>
        <translation>الإشعارات</translation>
    </message>
    <message>
        <source>View and manage notifications from your organization. Coming soon.</source>
        <translation>عرض إشعارات مؤسستك وإدارتها. قريبًا.</translation>
    </message>
</context>
<context>
    <name>App::RemoteCastingView</name>
    <message>
        <source>Remote Casting</source>
        <translation>البث عن بُعد</translation>
    </message>
    <message>
        <source>Cast content to external displays. Coming soon.</source>
        <translation>بث المحتوى على الشاشات الخارجية. قريبًا.</translation>
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
        <translation>مصادقة آمنة لتطبيقات المؤسسة. يتولى ملحق Quorvane SSO تسجيل الدخول عندما تطلب التطبيقات المُدارة المصادقة.</translation>
    </message>
</context>
<context>
    <name>Device</name>
    <message>
        <source>Open</source>
        <translation>فتح</translation>
    </message>
    <message>
        <source>Messages from your organization about this device</source>
        <translation>رسائل من مؤسستك بشأن هذا الجهاز</translation>
    </message>
    <message>
        <source>Turned off</source>
        <translation>متوقف</translation>
    </message>
    <message>
        <source>This device itself</source>
        <translation>هذا الجهاز نفسه</translation>
    </message>
</context>
<context>
    <name>FeatureCard</name>
    <message>
        <source>Tap to view details</source>
        <translation>اضغط لعرض التفاصيل</translation>
    </message>
    <message>
        <source>Coming Soon</source>
        <translation>قريبًا</translation>
    </message>
</context>
<context>
    <name>GetStartedButton</name>
    <message>
        <source>Get Started</source>
        <translation>ابدأ الآن</translation>
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
        <translation>لوحة معلومات إدارة الأجهزة</translation>
    </message>
</context>
<context>
    <name>NavigationDestination</name>
    <message>
        <source>Back</source>
        <translation>رجوع</translation>
    </message>
</context>
<context>
    <name>PermissionPanel</name>
    <message>
        <source>“%1” Would Like to Send You Notifications</source>
        <translation>يرغب «%1» في إرسال إشعارات إليك</translation>
    </message>
    <message>
        <source>Notifications may include alerts, sounds, and icon badges.</source>
        <translation>قد تتضمن الإشعارات تنبيهات وأصواتًا وشارات على الأيقونات.</translation>
    </message>
    <message>
        <source>Don’t Allow</source>
        <translation>عدم السماح</translation>
    </message>
    <message>
        <source>Allow</source>
        <translation>السماح</translation>
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
        <translation>تم</translation>
    </message>
    <message>
        <source>Allow Notifications</source>
        <translation>السماح بالإشعارات</translation>
    </message>
    <message>
        <source>Shown by</source>
        <translation>العرض</translation>
    </message>
    <message>
        <source>In this window</source>
        <translation>في هذه النافذة</translation>
    </message>
    <message>
        <source>Delivered by</source>
        <translation>التسليم</translation>
    </message>
</context>
<context>
    <name>WarningStrip</name>
    <message>
        <source>Notifications are off</source>
        <translation>الإشعارات متوقفة</translation>
    </message>
    <message>
        <source>Open Settings</source>
        <translation>فتح الإعدادات</translation>
    </message>
</context>
<context>
    <name>WelcomeView</name>
    <message>
        <source>Welcome to</source>
        <translation>مرحبًا بك في</translation>
    </message>
    <message>
        <source>Quorvane UEM</source>
        <translation>Quorvane UEM</translation>
    </message>
    <message>
        <source>Your comprehensive Unified Endpoint Management solution</source>
        <translation>حلّك الشامل للإدارة الموحّدة للأجهزة الطرفية</translation>
    </message>
    <message>
        <source>Secure, manage, and stay in control of your work device with built-in enterprise protection.</source>
        <translation>احمِ جهاز عملك وأدِره وحافظ على تحكمك فيه بفضل الحماية المؤسسية المدمجة.</translation>
    </message>
</context>
</TS>
