# -*- coding: utf-8 -*-
# Copyright: 2026 The krt_cli developers
# Distributed with NVMe Controllers under the terms in LICENSE.
"""Runs krt_cli with --json and reads its documents.

Everything the modules decide comes from the documents' records and their
`result`; the text lines under `messages` are only quoted when a request
failed and the tool said nothing better.
"""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json

# The major version of the JSON format these modules read; a minor version
# only adds keys and record kinds, which are ignored.
FORMAT_MAJOR = 2

# The RAID modes as `vd -a create -r` takes them and as the virtual_disk
# record names them.
RAID_MODES = {
    '0': 'RAID0',
    '1': 'RAID1',
    '5': 'RAID5',
    '6': 'RAID6',
    '10': 'RAID10',
    '50': 'RAID50',
    '60': 'RAID60',
    'JBOD': 'JBOD',
}

COMMON_ARGS = dict(
    krt_cli=dict(type='path'),
    controller=dict(type='int', default=0),
)


def raid_mode_word(text):
    """The -r word of a RAID mode written as 5, '5', 'raid5', 'RAID5' or 'jbod'."""
    word = str(text).strip().upper()
    if word.startswith('RAID'):
        word = word[4:]
    return word if word in RAID_MODES else None


def version_numbers(text):
    """'2.1.0.0035' -> (2, 1, 0, 35); None for a text that is not a version."""
    try:
        return tuple(int(part) for part in str(text).strip().split('.'))
    except ValueError:
        return None


def same_version(a, b):
    """Whether two firmware versions name the same image.

    A slot's revision text is at most eight characters, so it may leave out
    the third number of a four-part version (2.1.35 for 2.1.0.35).
    """
    x, y = version_numbers(a), version_numbers(b)
    if not x or not y:
        return False
    if len(x) == 3 and len(y) == 4:
        x, y = y, x
    if len(x) == 4 and len(y) == 3:
        return (x[0], x[1], x[3]) == y
    return x == y


def records(doc, kind):
    """The records of one kind, without their `record` key."""
    return [dict((k, v) for k, v in r.items() if k != 'record') for r in doc.get('records', []) if r.get('record') == kind]


def settings_record(doc, index):
    """The settings of one controller in a `get -o hba` document.

    Over all controllers the command shows the current controller's record
    once per controller; each record names the controller it is about.
    """
    for rec in records(doc, 'settings'):
        if rec.get('index') == index:
            return rec
    return None


def failure_text(doc):
    """What the tool said about a run that did not succeed."""
    status = doc.get('status') or {}
    result = doc.get('result') or {}
    if status.get('text'):
        return status['text']
    if result.get('message'):
        return result['message']
    messages = doc.get('messages') or []
    if messages:
        return messages[-1]
    return 'no message (result: %s)' % result.get('kind')


class KrtCli:
    """krt_cli on the managed host, for one module run."""

    def __init__(self, module):
        self.module = module
        path = module.params.get('krt_cli')
        self.path = path or module.get_bin_path('krt_cli')
        if not self.path:
            module.fail_json(msg='krt_cli was not found on PATH; give its path with the krt_cli parameter')
        self.version = None

    def fail(self, doc, words):
        """Ends the task with the tool's own account of a failed run."""
        status = doc.get('status') or {}
        self.module.fail_json(
            msg='krt_cli %s: %s' % (' '.join(words), failure_text(doc)),
            rc=doc.get('krt_cli', {}).get('exit_status'),
            result=(doc.get('result') or {}).get('kind'),
            status=status.get('value'),
            messages=doc.get('messages', []),
            changed=False,
        )

    def _documents(self, argv, data=None):
        rc, out, err = self.module.run_command(argv, data=data)
        docs = []
        for line in out.splitlines():
            if not line.strip():
                continue
            try:
                doc = json.loads(line)
            except ValueError:
                doc = None
            if not isinstance(doc, dict) or not doc.get('json_format_version'):
                self.module.fail_json(msg='%s did not answer with a JSON document' % self.path, rc=rc, stdout=out, stderr=err)
            if doc['json_format_version'][0] != FORMAT_MAJOR:
                self.module.fail_json(
                    msg='%s writes JSON format %s; these modules read format %d'
                    % (self.path, '.'.join(str(v) for v in doc['json_format_version']), FORMAT_MAJOR)
                )
            self.version = doc.get('krt_cli', {}).get('version')
            docs.append(doc)
        if not docs:
            self.module.fail_json(msg='%s printed nothing' % self.path, rc=rc, stderr=err)
        return docs

    def run(self, controller, words, check=True):
        """One command against one controller (None: the tool's default)."""
        argv = [self.path, '--json']
        if controller is not None:
            argv.append(str(controller))
        argv += [str(w) for w in words]
        doc = self._documents(argv)[0]
        if check and (doc.get('result') or {}).get('kind') != 'ok':
            self.fail(doc, [str(w) for w in words])
        return doc

    def session(self, controller, lines):
        """Several queries of one controller in one run of the tool's shell.

        The shell selects the controller with `adapter -i`, which reaches
        every controller: a controller number on the command line keeps
        `get -o hba` to the first two. Each line must succeed and answer for
        that controller; the documents of the lines are returned in order.
        """
        script = ['adapter -i %d' % controller] + list(lines)
        docs = self._documents([self.path, '--json'], data='\n'.join(script))
        # The first document is the shell's start-up; then one per line.
        if len(docs) != len(script) + 1:
            self.module.fail_json(msg='krt_cli answered %d of %d lines' % (len(docs) - 1, len(script)))
        for line, doc in zip(script, docs[1:]):
            if (doc.get('result') or {}).get('kind') != 'ok':
                self.fail(doc, line.split())
            if (doc.get('controller') or {}).get('index') != controller:
                self.module.fail_json(msg='krt_cli %s did not address controller %d' % (line, controller))
        return docs[2:]

    def controllers(self):
        """The controller records of `info -o hba`, every controller."""
        return records(self.run(None, ['info', '-o', 'hba']), 'controller')

    def controller(self, index):
        """The controller record of one controller; fails when there is none."""
        for c in self.controllers():
            if c.get('index') == index:
                return c
        self.module.fail_json(msg='krt_cli finds no controller %d' % index)
        return None
