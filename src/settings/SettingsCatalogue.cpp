#include "settings/SettingsCatalogue.h"

namespace lm2::settings {
namespace {

constexpr std::uint32_t kNoLimit = 0xFFFFFFFFu;

constexpr Setting text(SettingId id, SettingKey key, const wchar_t* name, SettingArea area, const wchar_t* byDefault,
                       SettingText title, SettingText explanation) {
  return {id, key, name, area, SettingType::kString, SettingForm::kText, 0, byDefault, 0, 0, nullptr, 0, true,
          title, explanation, {nullptr, nullptr}};
}

constexpr Setting number(SettingId id, SettingKey key, const wchar_t* name, SettingArea area, std::uint32_t byDefault,
                         std::uint32_t minimum, std::uint32_t maximum, SettingText title, SettingText explanation,
                         SettingText defaultNote = {nullptr, nullptr}) {
  return {id, key, name, area, SettingType::kNumber, SettingForm::kNumber, byDefault, L"", minimum, maximum,
          nullptr, 0, true, title, explanation, defaultNote};
}

constexpr Setting onOff(SettingId id, SettingKey key, const wchar_t* name, SettingArea area, bool byDefault,
                        SettingText title, SettingText explanation) {
  return {id, key, name, area, SettingType::kNumber, SettingForm::kSwitch, byDefault ? 1u : 0u, L"", 0, 1,
          nullptr, 0, true, title, explanation, {nullptr, nullptr}};
}

constexpr Setting list(SettingId id, SettingKey key, const wchar_t* name, SettingArea area, SettingText title,
                       SettingText explanation) {
  return {id, key, name, area, SettingType::kStringList, SettingForm::kList, 0, L"", 0, 0, nullptr, 0, true,
          title, explanation, {nullptr, nullptr}};
}

template <std::size_t N>
constexpr Setting numberChoice(SettingId id, SettingKey key, const wchar_t* name, SettingArea area,
                               std::uint32_t byDefault, const SettingChoice (&choices)[N], SettingText title,
                               SettingText explanation) {
  return {id, key, name, area, SettingType::kNumber, SettingForm::kChoice, byDefault, L"", 0, kNoLimit, choices, N,
          true, title, explanation, {nullptr, nullptr}};
}

template <std::size_t N>
constexpr Setting textChoice(SettingId id, SettingKey key, const wchar_t* name, SettingArea area,
                             const wchar_t* byDefault, const SettingChoice (&choices)[N], SettingText title,
                             SettingText explanation) {
  return {id, key, name, area, SettingType::kString, SettingForm::kChoice, 0, byDefault, 0, 0, choices, N, true,
          title, explanation, {nullptr, nullptr}};
}

constexpr Setting secret(Setting s) {
  s.inPolicy = false;
  return s;
}

constexpr SettingKey A = SettingKey::kProvider;
constexpr SettingKey B = SettingKey::kKaldera;

constexpr SettingChoice kLayers[] = {
    {0, L"Default", {"Security token (passwords stored on the token)", "Sicherheitstoken (Passwörter auf dem Token)"}},
    {0, L"Kaldera", {"Access card (account found in a directory)", "Zutrittskarte (Konto aus einem Verzeichnis)"}},
};

constexpr SettingChoice kTlsModes[] = {
    {1, nullptr, {"LDAP over TLS (LDAPS)", "LDAP über TLS (LDAPS)"}},
    {2, nullptr, {"StartTLS on the plain port", "StartTLS auf dem unverschlüsselten Port"}},
    {0, nullptr, {"No encryption", "Keine Verschlüsselung"}},
};

constexpr SettingChoice kScopes[] = {
    {0, nullptr, {"The search base only", "Nur die Suchbasis"}},
    {1, nullptr, {"One level below the search base", "Eine Ebene unter der Suchbasis"}},
    {2, nullptr, {"The whole subtree", "Der ganze Teilbaum"}},
};

// In the order of SettingId.
constexpr Setting kSettings[] = {
    text(SettingId::kLogSettingsPath, A, L"LogSettingsPath", SettingArea::kTrace, L"",
         {"Trace configuration file", "Konfigurationsdatei der Ablaufverfolgung"},
         {"Path of the trace configuration, a log4cpp properties file. The provider reads it each time LogonUI or "
          "CredUI creates it, so a change takes effect at the next logon screen. Empty: the provider writes no trace.",
          "Pfad der Konfiguration der Ablaufverfolgung, einer log4cpp-Properties-Datei. Der Provider liest sie jedes "
          "Mal, wenn LogonUI oder CredUI ihn erzeugt; eine Änderung wirkt also beim nächsten Anmeldebildschirm. Leer: "
          "Der Provider schreibt keine Ablaufverfolgung."}),
    number(SettingId::kReenumerateDelay, A, L"ReenumerateDelay", SettingArea::kLogon, 1000, 0, 60000,
           {"Delay before the tiles are shown anew (ms)", "Verzögerung, bevor die Kacheln neu erscheinen (ms)"},
           {"Base delay in milliseconds before the provider asks LogonUI to show its tiles anew after a token was "
            "connected or removed. Windows 7 uses it as it is; every later version a tenth of it, at most 100 ms, so "
            "the default means 1000 ms on Windows 7 and 100 ms elsewhere. The logon screen of Windows 7 needs the "
            "longer pause to show the tiles reliably.",
            "Grundverzögerung in Millisekunden, bevor der Provider LogonUI bittet, seine Kacheln neu anzuzeigen, "
            "nachdem ein Token verbunden oder entfernt wurde. Windows 7 verwendet sie unverändert, jede spätere "
            "Version ein Zehntel davon, höchstens 100 ms; der Standardwert bedeutet also 1000 ms unter Windows 7 und "
            "100 ms sonst. Der Anmeldebildschirm von Windows 7 braucht die längere Pause, um die Kacheln zuverlässig "
            "anzuzeigen."}),
    textChoice(SettingId::kAbstractionLayer, A, L"AbstractionLayer", SettingArea::kLogon, L"Default", kLayers,
               {"Kind of token", "Art des Tokens"},
               {"What the user connects to log on. Security token: the token holds the Windows password of each "
                "account and gives it after the token PIN. Access card: the card's id names the Windows account "
                "through an LDAP directory (category Access card) and the user types the account's password; set "
                "\"Variant of the tile states\" to Kaldera as well. A name the provider does not know counts as the "
                "security token.",
                "Womit sich der Benutzer anmeldet. Sicherheitstoken: Das Token enthält das Windows-Passwort jedes "
                "Kontos und gibt es nach der Token-PIN heraus. Zutrittskarte: Die Kartennummer bestimmt das "
                "Windows-Konto über ein LDAP-Verzeichnis (Kategorie Zutrittskarte), und der Benutzer gibt das "
                "Passwort des Kontos ein; setzen Sie dazu \"Variante der Kachelzustände\" auf Kaldera. Ein Name, den "
                "der Provider nicht kennt, gilt als Sicherheitstoken."}),
    list(SettingId::kFilterLogon, A, L"FilterLogon", SettingArea::kFilter,
         {"Providers hidden at logon", "Bei der Anmeldung ausgeblendete Provider"},
         {"Class ids of other credential providers that Windows does not show at logon, in the form "
          "{60B78E88-EAD8-445C-9CFD-0B87F74EA6CD} (the password provider). One per line, or several in one line "
          "separated by ; or blanks.",
          "Klassen-IDs anderer Anmeldeinformationsanbieter, die Windows bei der Anmeldung nicht anzeigt, in der "
          "Form {60B78E88-EAD8-445C-9CFD-0B87F74EA6CD} (der Kennwortanbieter). Eine pro Zeile oder mehrere in einer "
          "Zeile, getrennt durch ; oder Leerzeichen."}),
    list(SettingId::kFilterUnlockWorkstation, A, L"FilterUnlockWorkstation", SettingArea::kFilter,
         {"Providers hidden when the computer is unlocked", "Beim Entsperren ausgeblendete Provider"},
         {"Class ids of other credential providers that Windows does not show when a locked computer is unlocked; "
          "written as for logon.",
          "Klassen-IDs anderer Anmeldeinformationsanbieter, die Windows beim Entsperren eines gesperrten Computers "
          "nicht anzeigt; geschrieben wie für die Anmeldung."}),
    list(SettingId::kFilterChangePassword, A, L"FilterChangePassword", SettingArea::kFilter,
         {"Providers hidden when a password is changed", "Beim Ändern eines Passworts ausgeblendete Provider"},
         {"Class ids of other credential providers that Windows does not show after Ctrl+Alt+Del, Change a "
          "password; written as for logon.",
          "Klassen-IDs anderer Anmeldeinformationsanbieter, die Windows nach Strg+Alt+Entf, Kennwort ändern, nicht "
          "anzeigt; geschrieben wie für die Anmeldung."}),
    list(SettingId::kFilterCredUi, A, L"FilterCredUi", SettingArea::kFilter,
         {"Providers hidden in credential dialogs", "In Anmeldedialogen ausgeblendete Provider"},
         {"Class ids of other credential providers that Windows does not show in CredUI, the dialogs in which "
          "programs ask for credentials; written as for logon. Not applied when a program asks for generic "
          "credentials.",
          "Klassen-IDs anderer Anmeldeinformationsanbieter, die Windows in CredUI, den Dialogen, in denen Programme "
          "nach Anmeldedaten fragen, nicht anzeigt; geschrieben wie für die Anmeldung. Gilt nicht, wenn ein Programm "
          "nach allgemeinen Anmeldedaten fragt."}),
    onOff(SettingId::kEnableExperimentalCredUI, A, L"EnableExperimentalCredUI", SettingArea::kLogon, true,
          {"Offer token logon in credential dialogs", "Token-Anmeldung in Anmeldedialogen anbieten"},
          {"Enabled: the provider also offers its tiles in CredUI, the dialogs in which programs ask for "
           "credentials (for example Run as administrator or a remote desktop connection). Disabled: it takes part "
           "only in logon, unlock and password change.",
           "Aktiviert: Der Provider bietet seine Kacheln auch in CredUI an, den Dialogen, in denen Programme nach "
           "Anmeldedaten fragen (zum Beispiel Als Administrator ausführen oder eine Remotedesktopverbindung). "
           "Deaktiviert: Er nimmt nur an Anmeldung, Entsperren und Kennwortänderung teil."}),
    onOff(SettingId::kDisableSetSerializationImplementation, A, L"DisableSetSerializationImplementation",
          SettingArea::kLogon, false,
          {"Ignore credentials handed over by Windows", "Von Windows übergebene Anmeldedaten ignorieren"},
          {"Enabled: credentials that Windows hands to the provider (for example from a remote desktop connection "
           "or the program that opened a credential dialog) are ignored. Disabled: their account is preselected on "
           "the tile.",
           "Aktiviert: Anmeldedaten, die Windows dem Provider übergibt (zum Beispiel von einer "
           "Remotedesktopverbindung oder dem Programm, das einen Anmeldedialog geöffnet hat), werden ignoriert. "
           "Deaktiviert: Ihr Konto wird auf der Kachel vorausgewählt."}),
    text(SettingId::kCoreSet, A, L"CoreSet", SettingArea::kLogon, L"",
         {"Variant of the tile states", "Variante der Kachelzustände"},
         {"Name of the variant of the tile's states. Kaldera: the states for access cards (with \"Kind of token\" "
          "set to access card). Empty: the states for security tokens.",
          "Name der Variante der Zustände der Kachel. Kaldera: die Zustände für Zutrittskarten (mit \"Art des "
          "Tokens\" auf Zutrittskarte). Leer: die Zustände für Sicherheitstoken."}),
    text(SettingId::kTileImage, A, L"TileImage", SettingArea::kLogon, L"", {"Tile image", "Kachelbild"},
         {"Path of a bitmap file (.bmp) shown on the provider's tiles. Empty, or a file that cannot be loaded: the "
          "built-in image.",
          "Pfad einer Bitmap-Datei (.bmp), die auf den Kacheln des Providers erscheint. Leer oder eine Datei, die "
          "sich nicht laden lässt: das eingebaute Bild."}),
    list(SettingId::kDomainBlackListLogon, A, L"DomainBlackList_Logon", SettingArea::kLogon,
         {"Domains whose users may not log on with a token", "Domänen, deren Benutzer sich nicht mit Token anmelden"},
         {"One domain per line. A user of one of these domains is refused when logging on with a token.",
          "Eine Domäne pro Zeile. Ein Benutzer einer dieser Domänen wird bei der Anmeldung mit einem Token "
          "abgewiesen."}),
    list(SettingId::kDomainBlackList, A, L"DomainBlackList", SettingArea::kLogon,
         {"Domains whose credentials on a token are ignored", "Domänen, deren Anmeldedaten auf Token ignoriert werden"},
         {"One domain per line. Credentials stored on a security token for an account of one of these domains are "
          "not offered.",
          "Eine Domäne pro Zeile. Auf einem Sicherheitstoken gespeicherte Anmeldedaten eines Kontos einer dieser "
          "Domänen werden nicht angeboten."}),
    onOff(SettingId::kChangePasswordWithTokenFlags, A, L"ChangePasswordWithTokenFlags", SettingArea::kChangePassword,
          false, {"Generate the new password", "Neues Passwort erzeugen"},
          {"Enabled: Ctrl+Alt+Del, Change a password, with a token generates the new password (32 characters, never "
           "shown) and stores it on the token instead of asking for it. The account can then be reached only with "
           "its token. Disabled: the user types the new password.",
           "Aktiviert: Strg+Alt+Entf, Kennwort ändern, erzeugt mit einem Token das neue Passwort (32 Zeichen, nie "
           "angezeigt) und speichert es auf dem Token, statt danach zu fragen. Das Konto ist danach nur noch mit "
           "seinem Token erreichbar. Deaktiviert: Der Benutzer gibt das neue Passwort ein."}),
    onOff(SettingId::kDisableTokenInitialization, A, L"DisableTokenInitialization",
          SettingArea::kTokenInitialization, false,
          {"Never offer to initialise a token", "Nie anbieten, ein Token zu initialisieren"},
          {"Enabled: an uninitialised token is never offered for initialisation. Disabled: it is offered at logon "
           "and unlock.",
           "Aktiviert: Ein nicht initialisiertes Token wird nie zur Initialisierung angeboten. Deaktiviert: Es wird "
           "bei Anmeldung und Entsperren angeboten."}),
    onOff(SettingId::kDisallowAddingCredentials, A, L"DisallowAddingCredentials", SettingArea::kTokenInitialization,
          false,
          {"Never offer to store a first credential on a token",
           "Nie anbieten, erste Anmeldedaten auf einem Token zu speichern"},
          {"Enabled: storing a first credential (account and password) on an empty token is never offered. "
           "Disabled: it is offered at logon and unlock.",
           "Aktiviert: Erste Anmeldedaten (Konto und Passwort) auf einem leeren Token zu speichern, wird nie "
           "angeboten. Deaktiviert: Es wird bei Anmeldung und Entsperren angeboten."}),
    onOff(SettingId::kTokenInitializationDisallowNullPIN, A, L"TokenInitializationDisallowNullPIN",
          SettingArea::kTokenInitialization, false,
          {"Refuse an empty PIN when a token is initialised", "Leere PIN beim Initialisieren eines Tokens ablehnen"},
          {"Enabled: a token cannot be initialised with an empty PIN. Disabled: an empty PIN is accepted.",
           "Aktiviert: Ein Token kann nicht mit leerer PIN initialisiert werden. Deaktiviert: Eine leere PIN wird "
           "angenommen."}),
    text(SettingId::kTokenInitializationDefaultLabel, A, L"TokenInitializationDefaultLabel",
         SettingArea::kTokenInitialization, L"", {"Proposed token label", "Vorgeschlagene Token-Bezeichnung"},
         {"Label proposed for a token being initialised; the user may change it. Empty: no label is proposed.",
          "Bezeichnung, die für ein zu initialisierendes Token vorgeschlagen wird; der Benutzer kann sie ändern. "
          "Leer: Es wird keine vorgeschlagen."}),
    onOff(SettingId::kEnableAlternativeAuthenticationPath, A, L"EnableAlternativeAuthenticationPath",
          SettingArea::kLogon, false, {"Confirm the PIN on a PIN pad", "PIN an einem PIN-Pad bestätigen"},
          {"Enabled: tokens that announce a PIN pad have the PIN confirmed on the pad instead of typed on the "
           "screen. Disabled: the PIN is always typed on the screen.",
           "Aktiviert: Bei Token, die ein PIN-Pad melden, wird die PIN am Pad bestätigt statt am Bildschirm "
           "eingegeben. Deaktiviert: Die PIN wird immer am Bildschirm eingegeben."}),
    text(SettingId::kLdapServer, B, L"LdapServer", SettingArea::kKaldera, L"",
         {"Directory servers", "Verzeichnisserver"},
         {"The directory server that names the account of an access card. Several hosts separated by blanks are "
          "tried in order; a host may carry its port as host:port. Must be set for access cards.",
          "Der Verzeichnisserver, der das Konto einer Zutrittskarte nennt. Mehrere Hosts, durch Leerzeichen "
          "getrennt, werden der Reihe nach versucht; ein Host kann seinen Port als Host:Port tragen. Muss für "
          "Zutrittskarten gesetzt sein."}),
    numberChoice(SettingId::kLdapUseSSL, B, L"LdapUseSSL", SettingArea::kKaldera, 1, kTlsModes,
                 {"Protection of the directory connection", "Schutz der Verzeichnisverbindung"},
                 {"How the connection to the directory is protected. A StartTLS the server refuses ends the lookup: "
                  "nothing goes on in cleartext. Without encryption, a password bind is refused unless \"Allow a "
                  "password bind without encryption\" is enabled.",
                  "Wie die Verbindung zum Verzeichnis geschützt wird. Ein StartTLS, das der Server ablehnt, beendet "
                  "die Suche: Nichts wird unverschlüsselt fortgesetzt. Ohne Verschlüsselung wird eine Anmeldung mit "
                  "Passwort abgelehnt, außer \"Anmeldung mit Passwort ohne Verschlüsselung erlauben\" ist "
                  "aktiviert."}),
    number(SettingId::kLdapDefaultPort, B, L"LdapDefaultPort", SettingArea::kKaldera, 636, 1, 65535,
           {"Directory port", "Verzeichnisport"},
           {"Port for the hosts named without :port.", "Port für die Hosts, die ohne :Port genannt sind."},
           {"636 with LDAP over TLS, otherwise 389", "636 mit LDAP über TLS, sonst 389"}),
    text(SettingId::kLdapAuthDn, B, L"LdapAuthDn", SettingArea::kKaldera, L"",
         {"Bind name", "Anmeldename am Verzeichnis"},
         {"Distinguished name the provider binds with, for example cn=reader,dc=example,dc=com. Its password "
          "(LdapAuthPw) has no policy: a Group Policy object can be read by every user of the domain. Write it to "
          "the key on each computer and narrow the key's permissions to SYSTEM and the Administrators.",
          "Distinguished Name, mit dem sich der Provider anmeldet, zum Beispiel cn=reader,dc=example,dc=com. Sein "
          "Passwort (LdapAuthPw) hat keine Richtlinie: Ein Gruppenrichtlinienobjekt kann jeder Benutzer der Domäne "
          "lesen. Schreiben Sie es auf jedem Computer in den Schlüssel und beschränken Sie dessen Berechtigungen auf "
          "SYSTEM und die Administratoren."}),
    secret(text(SettingId::kLdapAuthPw, B, L"LdapAuthPw", SettingArea::kKaldera, L"",
                {"Bind password", "Passwort am Verzeichnis"},
                {"Password of the bind name; held in memory only while needed.",
                 "Passwort des Anmeldenamens; nur so lange im Speicher, wie es gebraucht wird."})),
    onOff(SettingId::kLdapAnonymousBind, B, L"LdapAnonymousBind", SettingArea::kKaldera, false,
          {"Bind anonymously", "Anonym am Verzeichnis anmelden"},
          {"Enabled: the provider binds without credentials; only then may the bind name be empty.",
           "Aktiviert: Der Provider meldet sich ohne Anmeldedaten an; nur dann darf der Anmeldename leer sein."}),
    onOff(SettingId::kLdapAllowCleartextBind, B, L"LdapAllowCleartextBind", SettingArea::kKaldera, false,
          {"Allow a password bind without encryption", "Anmeldung mit Passwort ohne Verschlüsselung erlauben"},
          {"Enabled: the bind password may go over a connection without TLS. Disabled: such a bind is refused "
           "before anything is sent.",
           "Aktiviert: Das Passwort darf über eine Verbindung ohne TLS gehen. Deaktiviert: Eine solche Anmeldung wird "
           "abgelehnt, bevor etwas gesendet wird."}),
    number(SettingId::kLdapOptTimeLimit, B, L"LdapOptTimeLimit", SettingArea::kKaldera, 10, 1, 300,
           {"Time limit of each network step (s)", "Zeitlimit jedes Netzwerkschritts (s)"},
           {"Seconds for each step but the search: taking the connection, answering its first message, the bind. "
            "Also sent to the server as the operations' time limit. A host that misses it is passed over for the "
            "next one.",
            "Sekunden für jeden Schritt außer der Suche: Verbindung annehmen, die erste Nachricht beantworten, "
            "anmelden. Geht auch als Zeitlimit der Operationen an den Server. Ein Host, der es verfehlt, wird "
            "zugunsten des nächsten übergangen."}),
    number(SettingId::kLdapOptSizeLimit, B, L"LdapOptSizeLimit", SettingArea::kKaldera, 2, 2, 1000,
           {"Size limit of the search", "Größenlimit der Suche"},
           {"Most entries the search returns. Two tell one account from a card id that names several.",
            "Höchstzahl der Einträge, die die Suche liefert. Zwei unterscheiden ein Konto von einer Kartennummer, "
            "die mehrere nennt."}),
    text(SettingId::kLdapSearchBase, B, L"LdapSearchBase", SettingArea::kKaldera, L"",
         {"Search base", "Suchbasis"},
         {"Distinguished name below which the card id is searched. Must be set for access cards.",
          "Distinguished Name, unter dem die Kartennummer gesucht wird. Muss für Zutrittskarten gesetzt sein."}),
    text(SettingId::kLdapSearchFilter, B, L"LdapSearchFilter", SettingArea::kKaldera, L"",
         {"Search filter", "Suchfilter"},
         {"LDAP filter in which every ##CARDID## is replaced by the card id, escaped so that *, (, ) and \\ match "
          "literally. Empty, or without ##CARDID##: (attribute holding the card id=##CARDID##).",
          "LDAP-Filter, in dem jedes ##CARDID## durch die Kartennummer ersetzt wird, so maskiert, dass *, (, ) und "
          "\\ wörtlich passen. Leer oder ohne ##CARDID##: (Attribut mit der Kartennummer=##CARDID##)."}),
    text(SettingId::kLdapAttributeCardId, B, L"LdapAttributeCardId", SettingArea::kKaldera, L"employeeID",
         {"Attribute holding the card id", "Attribut mit der Kartennummer"},
         {"Directory attribute whose value is the card id.", "Verzeichnisattribut, dessen Wert die Kartennummer ist."}),
    text(SettingId::kLdapPrependToCardId, B, L"LdapPrependToCardId", SettingArea::kKaldera, L"",
         {"Text in front of the card id", "Text vor der Kartennummer"},
         {"Put in front of the card id (the card's identification bytes as uppercase hexadecimal) before the "
          "search: ID- and the bytes 04 A1 B2 C3 give ID-04A1B2C3.",
          "Wird vor der Suche vor die Kartennummer gesetzt (die Identifikationsbytes der Karte hexadezimal in "
          "Großbuchstaben): ID- und die Bytes 04 A1 B2 C3 ergeben ID-04A1B2C3."}),
    number(SettingId::kLdapSearchTimeLimit, B, L"LdapSearchTimeLimit", SettingArea::kKaldera, 10, 1, 300,
           {"Time limit of the search (s)", "Zeitlimit der Suche (s)"},
           {"Seconds the search may take.", "Sekunden, die die Suche dauern darf."}),
    numberChoice(SettingId::kLdapSearchScope, B, L"LdapSearchScope", SettingArea::kKaldera, 2, kScopes,
                 {"Search scope", "Suchbereich"},
                 {"Where below the search base the card id is searched.",
                  "Wo unter der Suchbasis die Kartennummer gesucht wird."}),
    text(SettingId::kLdapAttributeUsername, B, L"LdapAttributeUsername", SettingArea::kKaldera, L"sAMAccountName",
         {"Attribute holding the account name", "Attribut mit dem Kontonamen"},
         {"Directory attribute whose value is the Windows account name of the card's owner.",
          "Verzeichnisattribut, dessen Wert der Windows-Kontoname des Karteninhabers ist."}),
    text(SettingId::kUserDefaultDomain, B, L"UserDefaultDomain", SettingArea::kKaldera, L"",
         {"Domain of account names without one", "Domäne für Kontonamen ohne Domäne"},
         {"Domain added to an account name the directory gives without one. Empty: the computer's name (a local "
          "account).",
          "Domäne, die einem Kontonamen ohne Domäne aus dem Verzeichnis hinzugefügt wird. Leer: der Name des "
          "Computers (ein lokales Konto)."}),
};

constexpr bool inIdOrder() {
  for (std::size_t i = 0; i < sizeof(kSettings) / sizeof(kSettings[0]); ++i) {
    if (static_cast<std::size_t>(kSettings[i].id) != i) return false;
  }
  return true;
}
static_assert(sizeof(kSettings) / sizeof(kSettings[0]) == static_cast<std::size_t>(SettingId::kCount),
              "every setting has one row");
static_assert(inIdOrder(), "rows stand in the order of SettingId");

}  // namespace

const Setting& setting(SettingId id) noexcept { return kSettings[static_cast<std::size_t>(id)]; }

const Setting* settingsBegin() noexcept { return kSettings; }

const Setting* settingsEnd() noexcept { return kSettings + static_cast<std::size_t>(SettingId::kCount); }

const wchar_t* keyPath(SettingKey key) noexcept {
  return key == SettingKey::kKaldera ? kKalderaKeyPath : kProviderKeyPath;
}

}  // namespace lm2::settings
