#!/usr/bin/python
# -*- coding: utf-8 -*-
# Copyright: 2026 The krt_cli developers
# Distributed with NVMe Controllers under the terms in LICENSE.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: krt_settings
short_description: Set auto rebuild and the background-activity rate of an NVMe RAID controller
version_added: 1.0.0
description:
  - Reads the controller's settings with C(krt_cli get -o hba) and, when one
    given here differs, writes them with C(krt_cli set -o hba).
  - A setting left out is left as it is.
author: The krt_cli developers (!UNKNOWN)
extends_documentation_fragment:
  - krt.raid.krt
  - krt.raid.krt.controller
options:
  auto_rebuild:
    description: Whether a virtual disk that lost a member rebuilds onto a spare by itself.
    type: bool
  bga_rate:
    description: Share of the controller that background activities (initialization, rebuild, media patrol) may take.
    type: str
    choices: [low, medium, high]
notes:
  - Supports C(check_mode) and C(diff_mode).
  - A JBOF controller has no such settings; the task fails with the tool's message.
'''

EXAMPLES = r'''
- name: Rebuild by itself, slowly
  krt.raid.krt_settings:
    auto_rebuild: true
    bga_rate: low

- name: Background activities at full speed on the second controller
  krt.raid.krt_settings:
    controller: 1
    bga_rate: high
'''

RETURN = r'''
settings:
  description: The settings after the task (in check mode, as they would be).
  returned: always
  type: dict
  contains:
    auto_rebuild:
      description: C(on) or C(off).
      type: str
    bga_rate:
      description: C(low), C(medium) or C(high).
      type: str
  sample:
    auto_rebuild: "on"
    bga_rate: low
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.krt.raid.plugins.module_utils.krt_cli import COMMON_ARGS, KrtCli, records, settings_record


def summary(record):
    return dict(auto_rebuild=record['auto_rebuild'].lower(), bga_rate=record['bga_rate'].lower())


def main():
    argument_spec = dict(COMMON_ARGS)
    argument_spec.update(
        auto_rebuild=dict(type='bool'),
        bga_rate=dict(type='str', choices=['low', 'medium', 'high']),
    )
    module = AnsibleModule(
        argument_spec=argument_spec, supports_check_mode=True, required_one_of=[('auto_rebuild', 'bga_rate')]
    )
    p = module.params
    cli = KrtCli(module)
    controller = p['controller']

    record = settings_record(cli.session(controller, ['get -o hba'])[0], controller)
    if record is None:
        module.fail_json(msg='krt_cli get -o hba shows no settings of controller %d' % controller)
    before = summary(record)
    wanted = dict(before)
    words = ['set', '-o', 'hba']
    if p['auto_rebuild'] is not None and before['auto_rebuild'] != ('on' if p['auto_rebuild'] else 'off'):
        wanted['auto_rebuild'] = 'on' if p['auto_rebuild'] else 'off'
        words += ['-a', wanted['auto_rebuild']]
    if p['bga_rate'] is not None and before['bga_rate'] != p['bga_rate']:
        wanted['bga_rate'] = p['bga_rate']
        words += ['-r', wanted['bga_rate']]

    if wanted == before:
        module.exit_json(changed=False, settings=before)
    if not module.check_mode:
        written = records(cli.run(controller, words), 'settings')
        wanted = summary(written[0]) if written else wanted
    module.exit_json(changed=True, settings=wanted, diff=dict(before=before, after=wanted))


if __name__ == '__main__':
    main()
