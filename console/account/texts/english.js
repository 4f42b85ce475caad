// The texts about log-ins and the own account in English; both languages have the same keys.

export const english = {
  language: 'en',
  goOn: 'Go on',
  logOut: 'Log out',
  cancel: 'Cancel',
  mustChangeTitle: 'Choose a new password',
  mustChangeText: 'The password that you logged in with is valid only once. Choose one that only you know.',
  oldPassword: 'Current password',
  newPassword: 'New password, 10 characters or more',
  newPasswordAgain: 'Repeat the new password',
  passwordsDiffer: 'The two new passwords are not the same.',
  passwordTooShort: 'The new password needs 10 characters or more.',
  wrongOldPassword: 'The current password is wrong.',
  setPassword: 'Set password',
  codeTitle: 'One-time code',
  codeText: 'Type the code that your authenticator app shows for Vantelink, or one of your backup codes.',
  code: 'Code',
  wrongCode: 'This code is wrong, was used already, or has expired.',
  tooManyCodes: 'Too many wrong codes. Wait ten minutes and try again.',
  backupCodesLeft: (/** @type {number} */ count) =>
    count === 0
      ? 'You have used your last backup code. Set up one-time codes again to get new ones.'
      : `You have used a backup code. ${count} ${count === 1 ? 'is' : 'are'} left.`,
  setUpTitle: 'Set up one-time codes',
  setUpRequired: 'Your role needs a one-time code at each log-in.',
  setUpSteps: {
    scan: 'Scan this picture with an authenticator app on your phone.',
    secret: 'Or type this key into the app',
    code: 'Then type the code that the app shows.',
  },
  qrCode: 'QR code with the key for the authenticator app',
  confirmCode: 'Confirm',
  backupTitle: 'Your backup codes',
  backupText:
    'Each of these codes replaces the app once, for example when the phone is lost. They are shown only now: ' +
    'keep them in a safe place.',
  backupHeading: (/** @type {string} */ name) => `Backup codes for Vantelink, ${name}`,
  backupFile: 'vantelink-backup-codes.txt',
  backupKept: 'I have kept the codes',
  stepUpTitle: 'Confirm that it is you',
  stepUpText: (/** @type {string} */ machine) =>
    `The group of ${machine} asks for your password again before a session.`,
  stepUpCodeText: (/** @type {string} */ machine) =>
    `The group of ${machine} asks for your password or a one-time code again before a session.`,
  password: 'Password',
  passwordOrCode: 'Password or code',
  wrongPassword: 'The password is wrong.',
  wrongPasswordOrCode: 'The password or the code is wrong.',
  reasonTitle: 'Reason for the session',
  reasonText: (/** @type {string} */ machine) =>
    `The group of ${machine} asks for a reason. It is recorded in the trail.`,
  reason: 'Reason',
  ask: 'Ask for the session',
  reasonBlank: 'Type a reason.',
  endsSoon: (/** @type {string} */ time) => `Your log-in ends in ${time}.`,
  stayTitle: 'Stay logged in',
  stayText: 'Your log-in has reached its longest time. Confirm that it is you, and your work goes on.',
  inviteTitle: 'Welcome to Vantelink',
  inviteText: 'You were invited. Choose a password, with which you then log in.',
  inviteOver:
    'This invitation is not valid: it was used already, has expired or was withdrawn. Ask for another one.',
  inviteDone: (/** @type {string} */ name) => `The password is set. Log in as ${name}.`,
  toLogIn: 'To the log-in',
  logOutFailed:
    'The log-out did not reach the relay, so this browser may still be logged in. Load the page again and log out.',
  accountName: 'Name',
  accountRole: 'Role',
  roles: { administrator: 'Administrator', representative: 'Representative', auditor: 'Auditor' },
  loginUntil: 'Logged in until',
  changePassword: 'Change password …',
  passwordTitle: 'Password',
  totpTitle: 'One-time codes',
  totpOn: 'Each log-in asks for a code of your authenticator app.',
  totpOff: 'A log-in asks for the password only. With one-time codes, a stolen password is not enough.',
  codesLeft: (/** @type {number} */ count) =>
    count === 1 ? '1 backup code is left.' : `${count} backup codes are left.`,
  setUp: 'Set up …',
  setUpAgainHint: 'For ten new backup codes, switch the codes off and set them up again.',
  removeTotp: 'Switch off …',
  removeTotpTitle: 'Switch off one-time codes',
  removeTotpText: 'After this, your password alone is enough to log in.',
  totpRemoved: 'One-time codes are switched off.',
  totpSet: 'One-time codes are set up.',
  totpNeeded:
    'Your role needs one-time codes. An administrator can reset yours, and then you set them up again.',
};
