#pragma once
// Ids of the texts (resources/MessageCatalogue.rc) that the tile and its states show by name.

#include <windows.h>

namespace lm2::message_ids {

inline constexpr UINT kPleaseConnectToken = 101;
inline constexpr UINT kTokenNotInitialized = 102;
inline constexpr UINT kNoCredentialsOnToken = 103;
inline constexpr UINT kUserNotLinkedToToken = 104;
inline constexpr UINT kTokenAccessProblem = 105;
inline constexpr UINT kGraveError = 106;
inline constexpr UINT kReadingData = 107;
inline constexpr UINT kInvalidPin = 110;
inline constexpr UINT kProductTitle = 116;
inline constexpr UINT kEngineInitializing = 117;
inline constexpr UINT kUndefinedState = 118;
inline constexpr UINT kUnresolvableState = 119;
inline constexpr UINT kSearchForToken = 120;
inline constexpr UINT kPleaseSelectUser = 121;
inline constexpr UINT kUserCanNotLogOn = 122;
inline constexpr UINT kErrorListingUsers = 123;
inline constexpr UINT kEngineFailed = 124;
inline constexpr UINT kCapabilitiesFailed = 125;
inline constexpr UINT kNoPasswordFromToken = 126;
inline constexpr UINT kUnexpectedResult = 127;
inline constexpr UINT kPackingFailed = 128;
inline constexpr UINT kInternalError = 129;
inline constexpr UINT kNoUserForThisSystem = 130;
inline constexpr UINT kPasswordOnTokenInvalid = 131;
inline constexpr UINT kPasswordsDoNotMatch = 132;
inline constexpr UINT kPasswordNotChangedOnToken = 133;
inline constexpr UINT kBackToPreviousView = 136;
inline constexpr UINT kLoggedOnUserNotOnToken = 137;
inline constexpr UINT kChangePasswordBeforeUnlock = 138;
inline constexpr UINT kMonitoringFailed = 139;
inline constexpr UINT kMonitoringFailedCaption = 140;
inline constexpr UINT kInitializeAgain = 142;
inline constexpr UINT kPinPadNote = 146;
inline constexpr UINT kSpecifyLabel = 148;
inline constexpr UINT kEnterAndConfirmPin = 149;
inline constexpr UINT kPinsDoNotMatch = 150;
inline constexpr UINT kNoPinProtection = 151;
inline constexpr UINT kSpecifyLabelAndPin = 152;
inline constexpr UINT kSpecifyPin = 153;
inline constexpr UINT kInitializeTokenNow = 154;
inline constexpr UINT kTryInitializationAgain = 155;
inline constexpr UINT kInitializationFailed = 156;
inline constexpr UINT kTokenInitializing = 157;
inline constexpr UINT kStoreFirstCredential = 158;
inline constexpr UINT kClickOkToLogon = 160;
inline constexpr UINT kUnknownUser = 161;
inline constexpr UINT kEnterLogonInformation = 162;
inline constexpr UINT kEnterPasswordAndPin = 163;
inline constexpr UINT kLogOnTo = 164;
inline constexpr UINT kErrorCaption = 165;
inline constexpr UINT kCredentialNotStored = 166;
inline constexpr UINT kReconnectToken = 167;
inline constexpr UINT kUpdatingTokenDataFailed = 168;
inline constexpr UINT kEnterPassword = 169;
inline constexpr UINT kDomainBlackListed = 170;
inline constexpr UINT kChangeTokenPin = 171;
inline constexpr UINT kPinChanged = 172;
inline constexpr UINT kPinNotChanged = 173;
inline constexpr UINT kPasswordMustChangeNow = 174;
inline constexpr UINT kPasswordIsGenerated = 175;
inline constexpr UINT kEnterNewPassword = 176;
inline constexpr UINT kEnterOldAndNewPin = 177;
// The Ctrl+Alt+Del change of an access card's account: nothing is kept on the card.
inline constexpr UINT kEnterOldAndNewPassword = 178;

}  // namespace lm2::message_ids
