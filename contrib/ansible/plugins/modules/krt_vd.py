#!/usr/bin/python
# -*- coding: utf-8 -*-
# Copyright: 2026 The krt_cli developers
# Distributed with NVMe Controllers under the terms in LICENSE.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: krt_vd
short_description: Create or delete a virtual disk of an NVMe RAID controller
version_added: 1.0.0
description:
  - Makes sure that a virtual disk of the given RAID mode on exactly the given
    physical disks exists (C(present)) or does not (C(absent)), with
    C(krt_cli vd -a create) and C(krt_cli vd -a delete).
  - A virtual disk counts as present when one of that RAID mode whose members
    are those physical disks exists, whatever its stripe size and namespaces.
author: The krt_cli developers (!UNKNOWN)
extends_documentation_fragment:
  - krt.raid.krt
  - krt.raid.krt.controller
options:
  raid_mode:
    description:
      - RAID mode of the virtual disk, one of C(0), C(1), C(5), C(6), C(10), C(50), C(60) and C(JBOD).
      - C(RAID5), C(raid5) and C(5) are the same.
    type: str
    required: true
  pds:
    description: Ids of the member physical disks, as C(info -o pd) shows them.
    type: list
    elements: int
    required: true
  namespaces:
    description:
      - Number of namespaces to create in a new virtual disk; they share its size equally.
      - Without it the controller creates one.
    type: int
  stripe:
    description:
      - Stripe block size of a new virtual disk in KiB.
      - Without it the tool's default, 128.
    type: int
    choices: [128, 256, 512]
  state:
    description: Whether the virtual disk should exist.
    type: str
    choices: [present, absent]
    default: present
notes:
  - Supports C(check_mode) and C(diff_mode).
  - A request that the tool or the controller refuses ends the task with the
    tool's text and exit status, and the task is not changed. This is how the
    tool's guard of the virtual disk that holds the host's OS volume shows.
  - A virtual disk whose members include one the controller cannot see is
    not matched.
'''

EXAMPLES = r'''
- name: A RAID1 of the two spare SSDs, with two namespaces
  krt.raid.krt_vd:
    raid_mode: RAID1
    pds: [6, 7]
    namespaces: 2

- name: A RAID5 with 256 KiB stripes on the second controller
  krt.raid.krt_vd:
    controller: 1
    raid_mode: 5
    pds: [0, 1, 2]
    stripe: 256

- name: Delete it again
  krt.raid.krt_vd:
    controller: 1
    raid_mode: 5
    pds: [0, 1, 2]
    state: absent
'''

RETURN = r'''
vd:
  description:
    - The virtual_disk record of the matching virtual disk (C(info -o vd)).
    - With C(present), the virtual disk as it is after the task; with
      C(absent), the one deleted. Null when there is none, and in check mode
      for one that would be created.
  returned: always
  type: dict
  sample:
    vd_id: 2
    name: VD_2
    status: Functional
    raid_mode: RAID1
    pd_ids: [6, 7]
    stripe_size_kib: 128
    size_bytes: 1920383410176
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.krt.raid.plugins.module_utils.krt_cli import COMMON_ARGS, RAID_MODES, KrtCli, raid_mode_word, records


def describe(vds):
    """The virtual disks as diff lines."""
    return ''.join(
        'VD %s: %s on PDs %s\n' % (vd['vd_id'], vd['raid_mode'], ','.join('-' if p is None else str(p) for p in vd['pd_ids'])) for vd in vds
    )


def main():
    argument_spec = dict(COMMON_ARGS)
    argument_spec.update(
        raid_mode=dict(type='str', required=True),
        pds=dict(type='list', elements='int', required=True),
        namespaces=dict(type='int'),
        stripe=dict(type='int', choices=[128, 256, 512]),
        state=dict(type='str', choices=['present', 'absent'], default='present'),
    )
    module = AnsibleModule(argument_spec=argument_spec, supports_check_mode=True)
    p = module.params
    cli = KrtCli(module)
    controller = p['controller']
    word = raid_mode_word(p['raid_mode'])
    if word is None:
        module.fail_json(msg='raid_mode %s is none of %s' % (p['raid_mode'], ', '.join(RAID_MODES)))
    members = sorted(set(p['pds']))
    if not members:
        module.fail_json(msg='pds names no physical disk')

    def listing():
        return records(cli.run(controller, ['info', '-o', 'vd']), 'virtual_disk')

    def match(vds):
        for vd in vds:
            ids = vd['pd_ids']
            if vd['raid_mode'] == RAID_MODES[word] and None not in ids and sorted(set(ids)) == members:
                return vd
        return None

    vds = listing()
    found = match(vds)
    result = dict(changed=False, vd=found)

    if p['state'] == 'present' and found:
        if p['stripe'] and found.get('stripe_size_kib') != p['stripe']:
            module.warn('VD %d has stripes of %s KiB, not %d; it is left as it is' % (found['vd_id'], found.get('stripe_size_kib'), p['stripe']))
        module.exit_json(**result)
    if p['state'] == 'absent' and not found:
        module.exit_json(**result)

    before = describe(vds)
    if p['state'] == 'present':
        after = before + 'VD (new): %s on PDs %s\n' % (RAID_MODES[word], ','.join(str(m) for m in members))
        words = ['vd', '-a', 'create', '-r', word, '-d', ','.join(str(m) for m in members)]
        if p['namespaces'] is not None:
            words += ['-n', p['namespaces']]
        if p['stripe']:
            words += ['-b', p['stripe']]
    else:
        after = describe([vd for vd in vds if vd is not found])
        words = ['vd', '-a', 'delete', '-i', found['vd_id']]

    result.update(changed=True, diff=dict(before=before, after=after))
    if not module.check_mode:
        cli.run(controller, words)
        if p['state'] == 'present':
            result['vd'] = match(listing())
            if result['vd'] is None:
                module.fail_json(msg='krt_cli created the virtual disk, but info -o vd does not show it', **result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
