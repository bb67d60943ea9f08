#!/usr/bin/python
# -*- coding: utf-8 -*-
# Copyright: 2026 The krt_cli developers
# Distributed with NVMe Controllers under the terms in LICENSE.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: krt_firmware
short_description: Update the firmware of an NVMe RAID controller
version_added: 1.0.0
description:
  - Downloads a controller firmware image into a slot with
    C(krt_cli flash -o hba) when the controller runs another version, and
    commits it to run from the next reset (or at once, with C(activate=now)).
  - The version of the image is the one you state in C(version); the module
    does not look into the image. It compares it with the running version
    (C(info -o hba)) and with the image already waiting in the slot for the
    next reset (C(flash -o hba -q firmware)), so that a second run before the
    reboot changes nothing.
author: The krt_cli developers (!UNKNOWN)
extends_documentation_fragment:
  - krt.raid.krt
  - krt.raid.krt.controller
options:
  src:
    description: Path of the firmware image on the managed host.
    type: path
    required: true
  version:
    description:
      - Version of the image in C(src), such as C(2.2.0.40).
      - Leading zeros do not count (C(2.1.0.0035) is C(2.1.0.35)).
    type: str
    required: true
  slot:
    description: Firmware slot to write the image to.
    type: int
    required: true
    choices: [1, 2, 3, 4, 5, 6, 7]
  activate:
    description:
      - C(reset) runs the image from the next reset of the controller (the
        host shuts down and boots again); C(now) activates it at once where
        the controller allows it.
    type: str
    choices: [reset, now]
    default: reset
notes:
  - Supports C(check_mode) and C(diff_mode).
  - A download or commit that the controller refuses ends the task with the
    tool's text and exit status.
'''

EXAMPLES = r'''
- name: Controller firmware 2.2.0.40 from the next boot
  krt.raid.krt_firmware:
    src: /vmfs/volumes/datastore1/krt/fw-2.2.0.40.bin
    version: 2.2.0.40
    slot: 2
  register: fw

- name: Reboot when an image waits for it
  ansible.builtin.debug:
    msg: "{{ inventory_hostname }} needs a reboot"
  when: fw.pending_reset
'''

RETURN = r'''
running_version:
  description: The version the controller runs after the task.
  returned: always
  type: str
  sample: 2.1.0.0035
pending_reset:
  description: Whether the image waits in C(slot) for the next reset.
  returned: always
  type: bool
slots:
  description: The firmware_slots record of C(flash -o hba -q firmware) after the task.
  returned: always
  type: dict
'''

import os

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.krt.raid.plugins.module_utils.krt_cli import COMMON_ARGS, KrtCli, records, same_version


def slot_state(cli, controller):
    found = records(cli.run(controller, ['flash', '-o', 'hba', '-q', 'firmware']), 'firmware_slots')
    return found[0] if found else {}


def waiting(slots, slot, version):
    """Whether the slot holds the version and is the one to run from the next reset."""
    if slots.get('next_active_slot') != slot:
        return False
    return any(s.get('slot') == slot and same_version(s.get('revision'), version) for s in slots.get('slots', []))


def main():
    argument_spec = dict(COMMON_ARGS)
    argument_spec.update(
        src=dict(type='path', required=True),
        version=dict(type='str', required=True),
        slot=dict(type='int', required=True, choices=[1, 2, 3, 4, 5, 6, 7]),
        activate=dict(type='str', choices=['reset', 'now'], default='reset'),
    )
    module = AnsibleModule(argument_spec=argument_spec, supports_check_mode=True)
    p = module.params
    cli = KrtCli(module)
    controller = p['controller']

    running = cli.controller(controller).get('firmware_version')
    slots = slot_state(cli, controller)
    result = dict(changed=False, running_version=running, pending_reset=waiting(slots, p['slot'], p['version']), slots=slots)
    if same_version(running, p['version']) or result['pending_reset']:
        module.exit_json(**result)

    if not os.path.isfile(p['src']):
        module.fail_json(msg='no firmware image at %s' % p['src'], **result)
    if p['activate'] == 'now':
        after = 'running %s from slot %d\n' % (p['version'], p['slot'])
    else:
        after = 'running %s\n%s in slot %d from the next reset\n' % (running, p['version'], p['slot'])
    result.update(changed=True, diff=dict(before='running %s\n' % running, after=after))
    if not module.check_mode:
        cli.run(controller, ['flash', '-o', 'hba', '-f', p['src'], '-s', p['slot'], '-c', 3 if p['activate'] == 'now' else 1])
        result['running_version'] = cli.controller(controller).get('firmware_version')
        result['slots'] = slot_state(cli, controller)
        result['pending_reset'] = waiting(result['slots'], p['slot'], p['version'])
    module.exit_json(**result)


if __name__ == '__main__':
    main()
