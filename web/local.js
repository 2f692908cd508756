// What is only one page's own: what it asked, what was agreed to on it, what is open.

export function freshLocal(dismissed) {
  return {
    busy: null, error: null, signedOut: null, lost: false, troubled: false, panel: null,
    offer: null, nothing: null, releases: null, downloadSeen: false, canceled: false,
    rates: new Map(), precheck: null, ticked: false, agreed: false, goesOn: false, refused: false,
    capBoot: "", dismissed, hand: { files: {}, refused: [], sending: null },
    equal: null, equalNote: null, notifications: null, history: null,
  };
}
