// The page's texts in English. The tables of all languages have the same keys.

const ms = (/** @type {number | null} */ trip) => (trip === null ? '–' : `${trip} ms`);

export const english = {
  language: 'en',
  slogan: 'Remote support for ships and shore',
  name: 'Name',
  password: 'Password',
  logIn: 'Log in',
  logOut: 'Log out',
  wrongLogin: 'The name or the password is wrong.',
  tooManyLogins: 'Too many failed log-ins. Wait ten minutes and try again.',
  noRelay: 'The relay does not answer. Check the connection and try again.',
  loginEnded: 'Your log-in has ended. Please log in again.',
  failed: 'The relay could not carry out the request.',
  changePassword: 'Change password …',
  passwordTitle: 'Change password',
  oldPassword: 'Current password',
  newPassword: 'New password, 10 characters or more',
  newPasswordAgain: 'Repeat the new password',
  change: 'Change',
  wrongPassword: 'The current password is wrong.',
  passwordsDiffer: 'The two new passwords are not the same.',
  passwordChanged: 'The password has been changed. All other browsers with this log-in name are logged out.',

  machines: 'Machines',
  search: 'Search',
  searchMachines: 'Search machines',
  machineCount: (/** @type {number} */ all, /** @type {number} */ online) =>
    `${all} ${all === 1 ? 'machine' : 'machines'}, ${online} online`,
  machinesFound: (/** @type {number} */ found, /** @type {number} */ all) =>
    `${found} of ${all} ${all === 1 ? 'machine' : 'machines'}`,
  noMachines: 'No machine has enrolled yet. A machine appears here when the agent is started on it.',
  noMatch: 'No machine matches the search.',
  connect: 'Connect',
  forget: 'Forget',
  forgetQuestion: (/** @type {string} */ machine) =>
    `Forget ${machine}? The machine will have to enrol again.`,
  state: {
    online: 'Online',
    offline: 'Offline',
    session: 'In session',
    restarting: 'Restarting',
    quarantine: 'In quarantine',
  },
  with: (/** @type {string} */ who) => `with ${who}`,
  lastSeen: (/** @type {'now' | 'minute' | 'hour' | 'day'} */ unit, /** @type {number} */ count) =>
    `last seen ${unit === 'now' ? 'just now' : `${count} ${unit}${count === 1 ? '' : 's'} ago`}`,
  connecting: 'Connecting to the relay …',
  reconnecting: 'The link to the relay is down. Connecting again …',

  displays: 'Displays',
  display: (/** @type {number} */ number) => `Display ${number}`,
  displayOf: (/** @type {number} */ number, /** @type {number} */ count) => `Display ${number} of ${count}`,
  picture: 'Picture',
  rate: 'Frames per second',
  codec: 'Encoding',
  notInThisBrowser: 'not in this browser',
  codecInUse: (/** @type {string} */ codec) => `In use: ${codec}`,
  codecObstacles: {
    noEncoder: 'the machine has no H.264 encoder that works',
    noDecoder: 'this browser cannot play H.264',
    cannotPlay: 'this browser cannot play this machine’s H.264',
  },
  codecSwitched:
    'This browser cannot play the machine’s H.264 pictures, so they now come as JPEG, which needs a faster line.',
  slowWithoutH264:
    'This browser cannot play the machine’s H.264 pictures. On a slow line they do not change to JPEG by ' +
    'themselves, because JPEG needs up to 1 MB/s.',
  useJpeg: 'Use JPEG',
  tryH264Again: 'Try H.264 again',
  slowLine: 'Slow line: 2 frames a second',
  showPointer: 'Show the machine’s pointer',
  actualSize: 'Actual size',
  restartPicture: 'Restart the picture',
  findDisplays: 'Find displays',
  keys: 'Keys',
  keyMode: 'Keyboard',
  byCharacter: 'by character',
  byPosition: 'by position',
  typeText: 'Type a text …',
  showKeyboard: 'Show the on-screen keyboard',
  leaveHint: 'From the picture to this toolbar:',
  leaveTip: 'The machine receives your keyboard. To the toolbar:',
  returnHint: 'Back to the picture:',
  typeQuestion: 'Text to type on the machine',
  type: 'Type',
  cancel: 'Cancel',
  machine: 'Machine',
  restart: 'Restart …',
  restartQuestion: (/** @type {string} */ machine) =>
    `Restart ${machine}? Its programs are closed, and unsaved work may be ` +
    'lost. The session continues when the machine is back.',
  restartNow: 'Restart',
  restarting: (/** @type {string} */ machine) =>
    `${machine} is restarting. The session continues when the machine is back …`,
  restartRequested: (/** @type {string} */ machine) =>
    `${machine} was asked to restart. It is closing its programs, and may ask about programs that do not close. ` +
    'The session continues after the restart.',
  notRestarted: (/** @type {string} */ machine) =>
    `${machine} has not restarted within 90 seconds. A program may be waiting for an answer, or Windows has ` +
    'refused the restart.',
  closePanel: 'Close',
  viewOnly: 'View only',
  watchOnly: 'You may only watch',
  watchOnlyRemark: 'You do not have the right to control this machine, only to watch it.',
  rights: {
    see: 'see the machine',
    control: 'control it',
    clipboard: 'use the clipboard',
    'files-up': 'upload files',
    'files-down': 'download files',
    restart: 'restart it and press Ctrl+Alt+Del',
    forget: 'forget it',
  },
  rightsGone: (/** @type {string} */ rights) => `Your rights have changed. You may no longer: ${rights}.`,
  rightsAdded: (/** @type {string} */ rights) => `Your rights have changed. You may now: ${rights}.`,
  viewOnlyRemark: 'View only: your mouse and keyboard do not reach the machine.',
  menu: 'Menu',
  showBar: 'Show the toolbar',
  fullScreen: 'Full screen',
  leaveFullScreen: 'Leave full screen',
  leaveByF11: 'F11 leaves full screen',
  holdEscape: 'Holding the Escape key down leaves full screen too',
  escapeLeaves: 'The Escape key leaves full screen too',
  end: 'End',
  screen: 'The machine’s screen',
  keyInput: 'Keyboard input for the machine',

  waiting: (/** @type {string} */ machine) => `Waiting for someone at ${machine} to allow the session …`,
  starting: 'Allowed. Waiting for the first picture …',
  pictureLate: (/** @type {string} */ machine) =>
    `No picture has come from ${machine} yet. Its screen may be switched off, locked, or showing a question of ` +
    'Windows that the agent may not see.',
  pictureNotShown: (/** @type {string} */ machine) =>
    `Pictures come from ${machine}, but this browser has not been able to show one yet.`,
  nextDisplay: 'Show another display',
  wake: 'Wake the screen',
  inputDropped: 'The line to the machine is interrupted. Keys and clicks are not sent.',
  linkStill: 'Nothing arrives on the link. The picture is no longer up to date.',
  stopWaiting: 'Stop waiting',
  askAgain: 'Ask again',
  backToMachines: 'Back to the machines',
  withdrawn: (/** @type {string} */ machine) => `The request to ${machine} was withdrawn.`,
  linkDown: 'The link to the relay is down. The session continues as soon as the link is back …',
  machineAway: (/** @type {string} */ machine) =>
    `${machine} has gone offline. The session continues as soon as the machine is back …`,
  machineTaken: (/** @type {string} */ machine, /** @type {string} */ who) =>
    `${machine} is in use by ${who}. The session continues as soon as the machine is free …`,
  ended: {
    declined: (/** @type {string} */ machine) => `The person at ${machine} declined the session.`,
    'no-answer': (/** @type {string} */ machine) =>
      `Nobody answered at ${machine}, so the request was withdrawn.`,
    'no-right': (/** @type {string} */ machine) =>
      `The session has ended because you no longer have the right to see ${machine}.`,
    'ended-by-administrator': () => 'An administrator has ended the session.',
    blocked: (/** @type {string} */ machine) =>
      `The session has ended because an administrator has blocked ${machine}.`,
    quarantined: (/** @type {string} */ machine) =>
      `The session has ended because an administrator has put ${machine} into quarantine.`,
    removed: (/** @type {string} */ machine) =>
      `The session has ended because an administrator has removed ${machine}.`,
    disconnected: (/** @type {string} */ machine) =>
      `The session has ended because an administrator has disconnected ${machine}.`,
    'no-evidence': () => 'The session has ended because the relay could not record it.',
    other: () => 'The session has ended.',
  },
  refused: {
    offline: (/** @type {string} */ machine) => `${machine} is offline.`,
    'in-use': (/** @type {string} */ machine, /** @type {string} */ who) => `${machine} is in use by ${who}.`,
    unknown: (/** @type {string} */ machine) => `${machine} is no longer known to the relay.`,
    'no-right': (/** @type {string} */ machine) => `You do not have the right to a session with ${machine}.`,
    quarantined: (/** @type {string} */ machine) => `${machine} is in quarantine, so it has no sessions.`,
    'too-many': () => 'Too many sessions are open in this browser.',
  },
  status: (/** @type {number} */ fps, /** @type {number} */ kilobytes, /** @type {number | null} */ trip) =>
    `${fps.toFixed(0)} frames/s · ${kilobytes.toFixed(0)} kB/s · ${ms(trip)} round trip`,
  unstable: 'unstable link',
  sessionStates: { requested: 'Waiting', waiting: 'Waiting', interrupted: 'Interrupted', ended: 'Ended' },

  files: 'Files',
  drives: 'Drives',
  place: 'Folder shown',
  folderAbove: 'Folder above',
  listAgain: 'List again',
  fileColumns: 'Columns',
  fileName: 'Name',
  fileSize: 'Size',
  fileTime: 'Changed',
  folderEmpty: 'The folder is empty, or the agent cannot read it.',
  entryCount: (/** @type {number} */ all, /** @type {number} */ chosen) =>
    `${all} ${all === 1 ? 'item' : 'items'}${chosen ? `, ${chosen} selected` : ''}`,
  download: 'Download',
  upload: 'Upload …',
  hintDrives: 'Open a folder to send files to it.',
  hintSelect: 'Select files to download.',
  hintSelectOrDrop: 'Select files to download, or drop files here to send them.',
  hintDrop: 'or drop files here',
  hintFolders: 'Folders cannot be downloaded. Open the folder and select files in it.',
  hintFoldersLeftOut: (/** @type {number} */ count) =>
    `${count === 1 ? 'The selected folder is' : `The ${count} selected folders are`} not downloaded.`,
  folderTooLarge: (/** @type {string} */ size) =>
    `The folder contains too much to be listed: the list alone has ${size}.`,
  listingInterrupted:
    'The session was interrupted while this folder was being listed. Press ⟳ to list it again.',
  putHere: (/** @type {number} */ count) => `Put ${count === 1 ? 'the file' : `${count} files`} here`,
  overwriteQuestion: (/** @type {number} */ count) =>
    count === 1 ? 'Replace this file on the machine?' : `Replace these ${count} files on the machine?`,
  versionThere: (/** @type {string} */ size, /** @type {string} */ time) =>
    `On the machine: ${size}${time && `, changed ${time}`}`,
  versionHere: (/** @type {string} */ size, /** @type {string} */ time) =>
    `To be sent: ${size}${time && `, changed ${time}`}`,
  andMore: (/** @type {number} */ count) => `and ${count} more`,
  skipThese: 'Skip',
  overwrite: 'Replace',
  transfers: 'Transfers',
  clearTransfers: 'Clear finished',
  saveAgain: 'Save again',
  savePart: 'Save what arrived',
  stillSent: 'the machine sends the file to its end unless the sending is stopped',
  stopSending: 'Stop the sending …',
  cutQuestion:
    'Stop what the machine is still sending? The relay closes the machine’s connection for this, so the ' +
    'session is interrupted for a moment and all running transfers end. A machine with a local user asks for ' +
    'permission again.',
  cutNow: 'Close the connection',
  transferDone: (/** @type {string} */ done, /** @type {string} */ all) => `${done} of ${all}`,
  transferLeft: (/** @type {string} */ time) => `${time} left`,
  transferStates: {
    waiting: 'Waiting',
    running: 'Running',
    checking: 'Checking what arrived …',
    failed: 'Failed',
    cancelled: 'Cancelled',
  },
  transferResults: { download: 'Downloaded', upload: 'Uploaded' },
  transferRemarks: {
    uploadCancelled: 'the part that arrived stays on the machine',
    downloadCancelled: 'the rest of the file is discarded',
    sessionOver: 'the session ended; the part that arrived stays on the machine',
    downloadOver: 'the session ended; the rest of the file is discarded',
    outOfOrder: 'parts of the file are missing',
    cannotOpen: 'the machine cannot open the file',
    machineFailed: 'the machine could not send the file',
    cannotRead: 'the file can no longer be read on this computer',
    noRoom: 'there is no space for the file on this computer',
    unreadableEnd: 'the machine’s message about the end of the file could not be read',
    fileChanged: 'the file has changed since it was listed',
    otherSize: 'the size differs from that on the machine: parts of the file may be missing',
    notThere: 'the machine could not create the file',
    notReplaced:
      'not replaced: the machine’s file has the same size and time as before. It may be open in a program, ' +
      'read-only or hidden',
    sameTarget: 'another upload to this file has not ended yet',
    folderTooLarge:
      'the folder contains too much to be listed, so the console cannot see which files would be replaced',
    cutShort: 'only a part arrived: the machine’s disk may be full',
    unchecked: 'sent, but the console could not check whether all of it arrived',
    noRight: 'you no longer have the right to this',
    isFolder: 'a folder has this name',
  },

  clipboard: 'Clipboard',
  clipAutomatic: 'Share texts, pictures and files',
  clipSend: 'Send my clipboard now',
  clipHint:
    'Ctrl+V on the picture pastes this computer’s clipboard on the machine, or what Ctrl+C on the picture has just copied there. Files can also be dropped on the picture.',
  clipText: 'A text was copied on the machine.',
  clipImage: 'A picture was copied on the machine.',
  clipImageName: 'picture',
  clipFiles: (/** @type {number} */ count) =>
    count === 1 ? 'A file was copied on the machine' : `${count} files were copied on the machine`,
  clipFilesSent: (/** @type {number} */ count) =>
    count === 1
      ? 'The file is on the machine’s clipboard. Paste it there.'
      : `${count} files are on the machine’s clipboard. Paste them there.`,
  clipFilesTooLarge: 'The files are too large for the clipboard, which holds up to 8 MiB.',
  clipNotices: {
    copied: 'The content copied on the machine is now on this computer’s clipboard.',
    sent: 'The content of this computer’s clipboard is now on the machine’s clipboard.',
    tooLarge: 'The content is too large for the clipboard, which holds up to 8 MiB.',
    unreadable:
      'This browser does not allow reading the clipboard. Click on the picture and press Ctrl+V instead.',
    nothing: 'This computer’s clipboard contains no text and no picture.',
    viewOnly: 'Nothing was sent, because “View only” is on.',
    machineTooLarge: 'What was copied on the machine is too large to be transferred.',
  },
  copy: 'Copy',
  save: 'Save',
  saveAll: 'Save all',
  administration: 'Administration',
  administrationWaiting: (/** @type {number} */ count) => `Administration (${count} waiting)`,
  yourAccount: 'Your account',
  loginEnd: 'End of the log-in',
  copiedNow: 'Copied',
  copyByHand: 'Select the text and copy it by hand',
  print: 'Print',
  problems: {
    400: 'The relay does not accept this.',
    401: 'Your log-in has ended. Please log in again.',
    403: 'You do not have the right to do this.',
    404: 'This no longer exists. Someone else may have removed it.',
    409: 'This does not fit what is there now.',
    413: 'This is too long.',
    429: 'Too many attempts. Wait ten minutes and try again.',
    503: 'The relay has too much to do at the moment. Try again in a few seconds.',
  },
};
