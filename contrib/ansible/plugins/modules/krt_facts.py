#!/usr/bin/python
# -*- coding: utf-8 -*-
# Copyright: 2026 The krt_cli developers
# Distributed with NVMe Controllers under the terms in LICENSE.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: krt_facts
short_description: Gather facts about NVMe RAID controllers with krt_cli
version_added: 1.0.0
description:
  - Runs C(krt_cli --json) on the managed host and returns every NVMe RAID
    controller it finds with its physical disks, virtual disks, namespaces,
    settings, firmware slots and health (SMART) as facts.
  - Reads only the records of the tool's JSON documents (format 2).
  - Needs nothing on the managed host beyond Python 3 and C(krt_cli).
author: The krt_cli developers (!UNKNOWN)
extends_documentation_fragment:
  - krt.raid.krt
notes:
  - Supports C(check_mode); it changes nothing in any mode.
  - A query that the tool or a controller fails ends the task with the
    tool's status text and exit status.
'''

EXAMPLES = r'''
- name: Gather the controllers' facts
  krt.raid.krt_facts:

- name: Fail when a virtual disk is not functional
  ansible.builtin.assert:
    that: item.status == 'Functional'
    fail_msg: "VD {{ item.vd_id }} is {{ item.status }}"
  loop: "{{ krt_controllers | map(attribute='virtual_disks') | flatten }}"

- name: Use a krt_cli that is not on PATH
  krt.raid.krt_facts:
    krt_cli: /opt/krt/krt_cli
'''

RETURN = r'''
ansible_facts:
  description: Facts added to the host.
  returned: always
  type: dict
  contains:
    krt_cli_version:
      description: Version of krt_cli.
      type: str
      sample: 1.0.0.1041
    krt_controllers:
      description: One entry per controller, in the tool's numbering (from 0).
      type: list
      elements: dict
      contains:
        index:
          description: The controller's number, as the C(controller) option of the other modules takes it.
          type: int
        device:
          description: The host's device name of the controller.
          type: str
          sample: vmhba1
        model:
          description: Model (Identify MN).
          type: str
        serial:
          description: Serial number (Identify SN).
          type: str
        firmware_version:
          description: The running firmware.
          type: str
          sample: 2.1.0.0035
        raid:
          description: Whether it is a RAID controller (false for a JBOF controller).
          type: bool
        controller:
          description: The controller record of C(info -o hba).
          type: dict
        physical_disks:
          description: The physical_disk records of C(info -o pd), each with its SMART log under C(smart).
          type: list
          elements: dict
        virtual_disks:
          description:
            - The virtual_disk records of C(info -o vd), each with its running or
              paused activity under C(background_activity) (null when idle).
          type: list
          elements: dict
        namespaces:
          description: The namespace records of C(info -o ns).
          type: list
          elements: dict
        settings:
          description: Auto rebuild and BGA rate (the settings record of C(get -o hba)); null on a JBOF controller.
          type: dict
        firmware:
          description: The firmware_slots record of C(flash -o hba -q firmware).
          type: dict
        health:
          description: The controller's own SMART log (C(smart -o hba)).
          type: dict
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.krt.raid.plugins.module_utils.krt_cli import KrtCli, records, settings_record


def one(doc, kind):
    found = records(doc, kind)
    return found[0] if found else None


def gather(cli, controller):
    index = controller['index']
    raid = 'RAID' in controller.get('supported_features', [])
    lines = ['identify -c 1', 'info -o pd', 'info -o vd', 'info -o ns', 'flash -o hba -q firmware', 'smart -o hba']
    if raid:
        lines.append('get -o hba')
    docs = cli.session(index, lines)
    identify, pd_doc, vd_doc, ns_doc, fw_doc, smart_doc = docs[:6]

    pds = records(pd_doc, 'physical_disk')
    if pds:
        logs = cli.session(index, ['smart -i %d' % pd['pd_id'] for pd in pds])
        for pd, log in zip(pds, logs):
            pd['smart'] = one(log, 'smart_log')

    # An activity record follows the virtual disk it belongs to.
    vds = records(vd_doc, 'virtual_disk')
    for vd in vds:
        vd['background_activity'] = None
    for bga in records(vd_doc, 'background_activity'):
        for vd in vds:
            if vd['vd_id'] == bga['vd_id']:
                vd['background_activity'] = bga

    ident = one(identify, 'identify_controller') or {}
    settings = settings_record(docs[6], index) if raid else None
    return dict(
        index=index,
        device=controller.get('device'),
        model=ident.get('mn'),
        serial=ident.get('sn'),
        firmware_version=controller.get('firmware_version'),
        raid=raid,
        controller=controller,
        physical_disks=pds,
        virtual_disks=vds,
        namespaces=records(ns_doc, 'namespace'),
        settings=settings,
        firmware=one(fw_doc, 'firmware_slots'),
        health=one(smart_doc, 'smart_log'),
    )


def main():
    module = AnsibleModule(argument_spec=dict(krt_cli=dict(type='path')), supports_check_mode=True)
    cli = KrtCli(module)
    controllers = [gather(cli, c) for c in cli.controllers()]
    module.exit_json(changed=False, ansible_facts=dict(krt_cli_version=cli.version, krt_controllers=controllers))


if __name__ == '__main__':
    main()
