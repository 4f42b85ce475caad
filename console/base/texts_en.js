// The console's words in English. Every other language has the same keys.

const ms = (/** @type {number | null} */ trip) => (trip === null ? '–' : `${trip} ms`);

export const english = {
  language: 'en',
  slogan: 'Remote support for ships and shore',
  name: 'Name',
  password: 'Password',
  logIn: 'Log in',
  logOut: 'Log out',
  wrongLogin: 'That name and password do not belong together.',
  tooManyLogins: 'Too many failed log-ins. Wait ten minutes and try again.',
  noRelay: 'The relay does not answer. Check the connection and try again.',
  loginEnded: 'Your login has ended. Please log in again.',
  failed: 'The relay could not do that.',
  changePassword: 'Change password …',
  oldPassword: 'Current password',
  newPassword: 'New password, 10 characters or more',
  newPasswordAgain: 'New password once more',
  change: 'Change',
  wrongPassword: 'That is not the current password.',
  passwordsDiffer: 'The two new passwords are not the same.',
  passwordChanged: 'The password is changed. Other browsers with this name are logged out.',

  machines: 'Machines',
  search: 'Search',
  searchMachines: 'Search machines',
  machineCount: (/** @type {number} */ all, /** @type {number} */ online) =>
    `${all} ${all === 1 ? 'machine' : 'machines'}, ${online} online`,
  noMachines: 'No machine has enrolled yet. Start the agent on one, and it appears here.',
  noMatch: 'No machine has that in its name.',
  connect: 'Connect',
  forget: 'Forget',
  forgetQuestion: (/** @type {string} */ machine) => `Forget ${machine}? It will have to enrol again.`,
  state: { online: 'Online', offline: 'Offline', session: 'In session', restarting: 'Restarting' },
  with: (/** @type {string} */ who) => `with ${who}`,
  lastSeen: (/** @type {'now' | 'minute' | 'hour' | 'day'} */ unit, /** @type {number} */ count) =>
    `last seen ${unit === 'now' ? 'just now' : `${count} ${unit}${count === 1 ? '' : 's'} ago`}`,
  connecting: 'Connecting to the relay …',
  reconnecting: 'The link to the relay is down. Connecting again …',

  displays: 'Displays',
  display: (/** @type {number} */ number) => `Display ${number}`,
  picture: 'Picture',
  rate: 'Pictures a second',
  codec: 'Encoding',
  notInThisBrowser: 'not in this browser',
  showPointer: 'Show the machine’s pointer',
  actualSize: 'Actual size',
  restartPicture: 'Restart the picture',
  findDisplays: 'Look for displays',
  keys: 'Keys',
  keyMode: 'Keyboard',
  byCharacter: 'by character',
  byPosition: 'by position',
  typeText: 'Type a text …',
  typeQuestion: 'Text to type on the machine',
  type: 'Type',
  cancel: 'Cancel',
  machine: 'Machine',
  restart: 'Restart …',
  restartQuestion: (/** @type {string} */ machine) =>
    `Restart ${machine}? Programs there are closed, and what is not saved may be ` +
    'lost. The session goes on when the machine is back.',
  restartNow: 'Restart',
  restarting: (/** @type {string} */ machine) =>
    `${machine} is restarting. The session goes on when it is back …`,
  notRestarted: (/** @type {string} */ machine) =>
    `${machine} has not restarted. The system there may have refused.`,
  closePanel: 'Close',
  viewOnly: 'View only',
  fullScreen: 'Full screen',
  end: 'End',
  screen: 'The machine’s screen',
  keyCatcher: 'Keys for the machine',

  waiting: (/** @type {string} */ machine) => `Waiting for somebody at ${machine} to allow the session …`,
  starting: 'Allowed. Waiting for the first picture …',
  stopWaiting: 'Stop waiting',
  goOn: 'Continue',
  askAgain: 'Ask again',
  backToMachines: 'Back to the machines',
  withdrawn: (/** @type {string} */ machine) => `The request to ${machine} was withdrawn.`,
  linkDown: 'The link to the relay is down. The session goes on as soon as it is back …',
  machineAway: (/** @type {string} */ machine) =>
    `${machine} has gone offline. The session goes on as soon as it is back …`,
  machineTaken: (/** @type {string} */ machine, /** @type {string} */ who) =>
    `${machine} is in use by ${who}. The session goes on as soon as it is free …`,
  ended: {
    declined: (/** @type {string} */ machine) => `The person at ${machine} declined the session.`,
    'no-answer': (/** @type {string} */ machine) =>
      `Nobody answered at ${machine}, so the request was withdrawn.`,
    slow: () => 'This browser could not keep up, which ended the session.',
    other: () => 'The session has ended.',
  },
  refused: {
    offline: (/** @type {string} */ machine) => `${machine} is offline.`,
    'in-use': (/** @type {string} */ machine, /** @type {string} */ who) => `${machine} is in use by ${who}.`,
    unknown: (/** @type {string} */ machine) => `${machine} is not known to the relay any more.`,
    'too-many': () => 'Too many sessions are open in this browser.',
  },
  status: (/** @type {number} */ fps, /** @type {number} */ kilobytes, /** @type {number | null} */ trip) =>
    `${fps.toFixed(0)} frames/s · ${kilobytes.toFixed(0)} kB/s · ${ms(trip)} round trip`,
  unstable: 'unstable link',

  files: 'Files',
  drives: 'Drives',
  place: 'Folder shown',
  folderAbove: 'Folder above',
  listAgain: 'List again',
  fileName: 'Name',
  fileSize: 'Size',
  fileTime: 'Changed',
  folderEmpty: 'Empty, or the agent may not look into it.',
  entryCount: (/** @type {number} */ all, /** @type {number} */ chosen) =>
    `${all} ${all === 1 ? 'item' : 'items'}${chosen ? `, ${chosen} selected` : ''}`,
  download: 'Download',
  upload: 'Upload …',
  dropHint: 'or drop files here',
  putHere: (/** @type {number} */ count) => `Put ${count === 1 ? 'the file' : `${count} files`} here`,
  overwriteQuestion: (/** @type {number} */ count) =>
    count === 1
      ? 'This file is there already. It would be replaced.'
      : `${count} files are there already. They would be replaced.`,
  andMore: (/** @type {number} */ count) => `and ${count} more`,
  skipThese: 'Skip',
  overwrite: 'Replace',
  transfers: 'Transfers',
  clearTransfers: 'Clear finished',
  saveAgain: 'Save again',
  transferDone: (/** @type {string} */ done, /** @type {string} */ all) => `${done} of ${all}`,
  transferLeft: (/** @type {string} */ time) => `${time} left`,
  transferStates: {
    waiting: 'Waiting',
    running: 'Running',
    checking: 'Checking what arrived …',
    done: 'Done',
    failed: 'Failed',
    cancelled: 'Cancelled',
  },
  transferRemarks: {
    uploadCancelled: 'the part that arrived stays on the machine',
    downloadCancelled: 'the machine cannot be told to stop; what it still sends is thrown away',
    sessionOver: 'the session ended; what had arrived on the machine stays there',
    outOfOrder: 'pieces are missing',
    cannotOpen: 'the machine cannot open the file',
    machineFailed: 'the machine could not send the file',
    cannotRead: 'the file cannot be read on this computer any more',
    noRoom: 'there is no room for the file on this computer',
    otherSize:
      'its size is not the one that was listed: it changed meanwhile, or the machine could not read all of it',
    notThere: 'the file is not there: the machine could not create it',
    cutShort: 'only a part arrived: the machine’s disk may be full',
    unproven: 'sent, but it could not be checked what arrived',
    isFolder: 'a folder has that name',
  },

  clipboard: 'Clipboard',
  clipAutomatic: 'Share texts, pictures and files',
  clipSend: 'Send my clipboard now',
  clipHint:
    'Ctrl+V on the picture pastes this computer’s clipboard there. Files can also be dropped on the picture.',
  clipText: 'A text was copied on the machine.',
  clipImage: 'A picture was copied on the machine.',
  clipImageName: 'picture',
  clipFiles: (/** @type {number} */ count) =>
    count === 1 ? 'A file was copied on the machine' : `${count} files were copied on the machine`,
  clipFilesSent: (/** @type {number} */ count) =>
    count === 1
      ? 'The file is on the machine’s clipboard. Paste it there.'
      : `${count} files are on the machine’s clipboard. Paste them there.`,
  clipFilesTooLarge: 'That is too much for the clipboard, which takes files up to 8 MiB.',
  clipNews: {
    copied: 'What was copied on the machine is on this clipboard now.',
    sent: 'This clipboard is on the machine now.',
    tooLarge: 'That is too much for the clipboard, which takes 8 MiB.',
    unreadable:
      'This browser does not let the clipboard be read. Click on the picture and press Ctrl+V instead.',
    nothing: 'There is no text and no picture on this clipboard.',
  },
  copy: 'Copy',
  save: 'Save',
  saveAll: 'Save all',
};
