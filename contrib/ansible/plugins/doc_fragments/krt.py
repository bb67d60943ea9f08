# -*- coding: utf-8 -*-
# Copyright: 2026 The krt_cli developers
# Distributed with NVMe Controllers under the terms in LICENSE.

from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment(object):
    # Where the modules find krt_cli.
    DOCUMENTATION = r'''
options:
  krt_cli:
    description:
      - Path of C(krt_cli) on the managed host.
      - Without it, C(krt_cli) is looked for on C(PATH).
    type: path
'''

    # The controller a module changes.
    CONTROLLER = r'''
options:
  controller:
    description: The controller, numbered from 0 as C(krt_cli) numbers it.
    type: int
    default: 0
'''
